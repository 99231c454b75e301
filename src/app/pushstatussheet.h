#pragma once

#include "pushstatus.h"

#include <QCoroTask>
#include <QJsonObject>
#include <QObject>
#include <QStringList>

#include <exception>

class Api;
class PushCenter;

// The push check, end to end: the permission on this device, whether this device is
// registered, whether the server can send, and a test notification. Main thread only.
class PushStatusSheet : public QObject
{
    Q_OBJECT
    // True while the status or the test is on its way.
    Q_PROPERTY(bool loading READ loading NOTIFY changed)
    // The three lines of the check, and the server's problems explained (one line each).
    Q_PROPERTY(QString permissionText READ permissionText NOTIFY changed)
    Q_PROPERTY(QString deviceText READ deviceText NOTIFY changed)
    Q_PROPERTY(QString serverText READ serverText NOTIFY changed)
    Q_PROPERTY(QStringList problems READ problems NOTIFY changed)
    // What became of the last test, "" before one.
    Q_PROPERTY(QString testText READ testText NOTIFY changed)
    // Why the status could not be read, "" when it could.
    Q_PROPERTY(QString failure READ failure NOTIFY changed)

public:
    enum class Test { None, Sent, NoDevice, NotSent };
    Q_ENUM(Test)

    // Asks through api, which must outlive it.
    PushStatusSheet(Api &api, PushCenter *center, QObject *parent = nullptr);

    bool loading() const { return m_loading; }
    QString permissionText() const;
    QString deviceText() const;
    QString serverText() const;
    QStringList problems() const;
    QString testText() const;
    QString failure() const { return m_failure; }
    // What the last load threw, for callers that tell failures apart.
    std::exception_ptr error() const { return m_error; }
    bool loaded() const { return m_loaded; }
    const PushStatus &status() const { return m_status; }
    Test test() const { return m_test; }
    bool deviceRegistered() const;

    // GET "webapi/push/status".
    QCoro::Task<> load();
    // POST "webapi/push/test".
    QCoro::Task<> sendTest();

    // How a test went, from the server's reply or its failure.
    static Test testOf(const QJsonObject &reply);
    static Test testOf(const std::exception_ptr &error);

    // The check as data, for scripts.
    QJsonObject toJson() const;

signals:
    void changed();

private:
    Api &m_api;
    PushCenter *m_center;
    PushStatus m_status;
    bool m_loaded = false;
    bool m_loading = false;
    QString m_failure;
    std::exception_ptr m_error;
    Test m_test = Test::None;
    QString m_testReason;
};
