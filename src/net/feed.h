#pragma once

#include "feedcore.h"

#include <concepts>
#include <memory>

// The typed face of a FeedCore: Feed<ProjectsPage> gives ProjectsPage values.
// moc cannot make class templates, so the observable part is the core.
template<class T>
class Feed
{
public:
    // The sleeper times reloads; api and the sleeper outlive the feed.
    Feed(Api &api, QString path, double every, Sleeper &sleeper)
        : m_core(std::make_unique<FeedCore>(api, std::move(path), every, Api::decoderFor<T>(),
                                            &Feed::present, sleeper))
    {
    }

    // The page; T's empty default before anything is known.
    T value() const
    {
        const std::any &v = m_core->typedValue();
        return v.has_value() ? std::any_cast<T>(v) : T{};
    }
    bool loading() const { return m_core->loading(); }
    QString failure() const { return m_core->failure(); }
    QString digest() const { return m_core->digest(); }

    QCoro::Task<> load() { return m_core->load(); }
    void watch() { m_core->watch(); }

    // For signals and QML.
    FeedCore *object() const { return m_core.get(); }

private:
    static QVariant present(const std::any &value)
    {
        const T &typed = std::any_cast<const T &>(value);
        if constexpr (requires { typed.toVariant(); })
            return typed.toVariant();
        else
            return QVariant();
    }

    std::unique_ptr<FeedCore> m_core;
};
