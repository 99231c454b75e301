#pragma once

#include "api.h"

#include <QObject>
#include <QVariant>

#include <any>

class Sleeper;

// The observable holder of one server page, without its type: what QML binds to and what
// the typed Feed<T> wraps. Shows the remembered copy at once, then keeps it fresh.
class FeedCore : public QObject
{
    Q_OBJECT
    // The page for QML (its JSON as variants, when the page type can say it).
    Q_PROPERTY(QVariant value READ value NOTIFY valueChanged)
    // True until the first answer.
    Q_PROPERTY(bool loading READ loading NOTIFY loadingChanged)
    // The last failure in the current language; "" when none.
    Q_PROPERTY(QString failure READ failure NOTIFY failureChanged)

public:
    using Presenter = std::function<QVariant(const std::any &)>;

    FeedCore(Api &api, QString path, double every, Api::Decoder decode, Presenter present,
             Sleeper &sleeper, QObject *parent = nullptr);

    QVariant value() const { return m_present && m_value.has_value() ? m_present(m_value) : QVariant(); }
    const std::any &typedValue() const { return m_value; }
    bool loading() const { return m_loading; }
    QString failure() const { return m_failure; }
    QString path() const { return m_path; }
    double every() const { return m_every; }
    QString digest() const { return m_digest; }

    // One reload; never throws (failures land in `failure`).
    QCoro::Task<> load();
    // Reloads every `every` seconds while the feed lives; nothing when `every` is 0 or less.
    void watch();
    bool watching() const { return m_watching; }

    // At most this many reloads in a row for a page the server says it is rebuilding.
    static constexpr int maxRefreshRetries = 3;

signals:
    void valueChanged();
    void loadingChanged();
    void failureChanged();

private:
    static QCoro::Task<> watchLoop(QPointer<FeedCore> feed, Sleeper *sleeper,
                                   std::chrono::milliseconds period);
    static QCoro::Task<> retryLater(QPointer<FeedCore> feed, Sleeper *sleeper,
                                    std::chrono::milliseconds delay, int generation);
    void setLoading(bool loading);
    void setFailure(const QString &failure);
    void noteRefreshing();

    Api &m_api;
    QString m_path;
    double m_every;
    Api::Decoder m_decode;
    Presenter m_present;
    Sleeper *m_sleeper;
    std::any m_value;
    QString m_digest;
    bool m_shown = false;
    bool m_loading = true;
    QString m_failure;
    bool m_watching = false;
    int m_retries = 0;
    int m_retryGeneration = 0;
};
