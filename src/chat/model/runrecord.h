#pragma once

#include <QJsonObject>
#include <QJsonValue>
#include <QString>

#include <optional>

// The reply of "webapi/runs/<id>", read while polling a run.
struct RunRecord
{
    QString conversationID = QStringLiteral("main");
    QString status;
    bool done = false;
    QString text;
    QString label;
    std::optional<int> attempt;
    QString error;
    QString outcome;
    QString voiceURL;
    std::optional<double> createdAt;

    // Never rejects a field: polling a run is the fallback when frames are lost, and one
    // odd value must not stop it for good. A value that makes no sense reads as absent;
    // only a body that is not an object throws DecodeError.
    static RunRecord fromJson(const QJsonValue &value);
    QJsonObject toJson() const;

    // How the run ended: outcome, or "complete" when the server named none.
    QString finalOutcome() const;
    // The voice file the reply's message is named after: the last segment of voiceURL.
    std::optional<QString> voiceFile() const;

    bool operator==(const RunRecord &) const = default;
};
