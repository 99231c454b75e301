#pragma once

// Qt's HTTP layer never sets TCP_NODELAY on its sockets (plain or TLS), so an upload's last
// partial segment waits for the server's delayed ACK: about 40 ms a request. This unit
// takes over connect() for the process and sets TCP_NODELAY on every TCP socket before it
// connects. Calling it keeps the unit linked in; it has nothing else to do.
namespace LowDelay {

// True when the override is in place (it is whenever this program was linked with it).
bool active();

} // namespace LowDelay
