#pragma once

class QNetworkAccessManager;
class QObject;

namespace Network {

// A network manager as the transport needs it, owned by parent: it stores no cookies and
// sends none of its own, and never follows a redirect to another origin. A process makes
// one (connection reuse) in its main and hands it to its Api. Main thread only.
QNetworkAccessManager *create(QObject *parent);

// Called once the event loop has ended and nothing will use the network again: deletes the
// managers made here that a parent owns. Their exchanges were cancelled at shutdown, after the
// loop, and Qt's network thread answers a cancel a moment later; deleting the manager waits for
// that thread, and what it posted back is delivered, so nothing of those exchanges outlives the
// process as a leak.
void settle();

} // namespace Network
