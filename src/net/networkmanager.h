#pragma once

class QNetworkAccessManager;
class QObject;

namespace Network {

// A network manager as the transport needs it, owned by parent: it stores no cookies and
// sends none of its own, and never follows a redirect to another origin. A process makes
// one (connection reuse) in its main and hands it to its Api. Main thread only.
QNetworkAccessManager *create(QObject *parent);

} // namespace Network
