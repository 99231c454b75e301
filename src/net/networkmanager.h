#pragma once

class QNetworkAccessManager;

namespace Network {

// The process's one network manager (connection reuse), created on first use and owned
// by the application object. Main thread only. It stores no cookies and sends none of its
// own, and never follows a redirect to another origin.
QNetworkAccessManager *manager();
// Tests only: replies come from this manager instead (nullptr: the real one again).
void setManagerForTests(QNetworkAccessManager *manager);

} // namespace Network
