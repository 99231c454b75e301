#pragma once

#include "foreign.h"

#include <QJsonObject>
#include <QObject>
#include <QPointer>
#include <QQmlParserStatus>
#include <QVariant>
#include <QtQml/qqmlregistration.h>

#include <memory>

class App;
Q_MOC_INCLUDE("app.h")

// One server page for a screen: the saved copy at once, then the server's, reloaded every
// `every` seconds while shown. Actions post through the transport and reload the page. The
// page that makes one hands it the shell, whose ports carry the transport and the timers.
class PageFeed : public QObject, public QQmlParserStatus
{
    Q_OBJECT
    Q_INTERFACES(QQmlParserStatus)
    QML_ELEMENT
    // The shell whose transport and sleeper the feed uses.
    Q_PROPERTY(App *shell READ shell WRITE setShell NOTIFY shellChanged REQUIRED)
    // The page below "webapi/" ("projects", "tasks"...).
    Q_PROPERTY(QString path READ path WRITE setPath NOTIFY pathChanged)
    // Seconds between reloads; 0 loads once.
    Q_PROPERTY(double every READ every WRITE setEvery NOTIFY everyChanged)
    // The page's JSON as variants; null before anything is known.
    Q_PROPERTY(QVariant value READ value NOTIFY valueChanged)
    Q_PROPERTY(bool loading READ loading NOTIFY loadingChanged)
    // Why the page or the last action failed, in the current language; "" when none.
    Q_PROPERTY(QString failure READ failure NOTIFY failureChanged)
    // An action is running.
    Q_PROPERTY(bool acting READ acting NOTIFY actingChanged)

public:
    explicit PageFeed(QObject *parent = nullptr);
    ~PageFeed() override;

    App *shell() const { return m_shell; }
    void setShell(App *shell);
    QString path() const { return m_path; }
    void setPath(const QString &path);
    double every() const { return m_every; }
    void setEvery(double every);
    QVariant value() const;
    bool loading() const;
    QString failure() const;
    bool acting() const { return m_acting; }

    void classBegin() override {}
    void componentComplete() override;

    Q_INVOKABLE void reload();
    // POSTs body to "webapi/" + path, then reloads the page.
    Q_INVOKABLE void post(const QString &path, const QVariantMap &body);

signals:
    void shellChanged();
    void pathChanged();
    void everyChanged();
    void valueChanged();
    void loadingChanged();
    void failureChanged();
    void actingChanged();

private:
    void rebuild();
    static QCoro::Task<> act(QPointer<PageFeed> feed, QString path, QJsonObject body);

    QPointer<App> m_shell;
    // Nothing loads before QML has set every property: one request, not one per property.
    bool m_complete = false;
    QString m_path;
    double m_every = 0;
    std::unique_ptr<FeedCore> m_core;
    bool m_acting = false;
    QString m_actionFailure;
};
