#pragma once

#include "chat/model/activity.h"

#include <QJsonObject>
#include <QJsonValue>
#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

struct ActivityUpdate;

// One agent run in progress (or just finished), drawn as a live card under the user
// message that started it. Also the on-disk activity record (camelCase keys).
struct Lane
{
    QString id;    // the run id ("run_…")
    QString label; // the heading; empty until the server names one (see heading())
    QString text;  // the latest streamed text
    qint64 after = 0; // seq of the message the lane is drawn under; below 1: none
    QStringList summaries; // one-line results of finished steps, in the order they finished
    QList<Activity> tools; // tool steps in arrival order
    bool finished = false;
    std::optional<QString> outcome; // "completed", "complete", "error", "superseded", ...
    std::optional<int> attempt;
    std::optional<qint64> eventCursor; // seq of the last stored update applied
    // History kept for replaying a finished card. Carried and merged like the live lists;
    // nothing here fills them.
    std::optional<QStringList> replaySummaries;
    std::optional<QList<Activity>> replayTools;

    static Lane fromJson(const QJsonValue &value);
    QJsonObject toJson() const;

    // The placeholder heading and text of a run that has said nothing yet.
    static QString workingOnIt();
    // label, or workingOnIt() while there is none.
    QString heading() const;

    // "task:N" when the lane belongs to a numbered task, otherwise the run id.
    QString activityKey() const;
    // From the heading ("Task #12 · …"), failing that from a run id of the form
    // "task_12…" / "task-12" (see TaskNumber::opening).
    std::optional<int> taskNumber() const;
    // The time left of a waiting lane, for its card: "42s left", then "Any moment now"
    // once until has passed. Empty for a finished lane or when nothing is awaited.
    QString countdown(std::optional<double> until, double now) const;

    // A status event of the run. An open status ("started", "running") changes nothing:
    // frames and polls arrive out of order, and a late "started" must not revive a
    // finished card. Any other word finishes the lane; the first outcome stays.
    void record(const QString &status);
    // A tool event. It updates the latest step of that name that is still open (its
    // detail when the summary is not empty, its status); without one a new step is
    // appended with the id name + ":" + its ordinal among steps of that name, so that two
    // lanes built from the same events name their steps alike. An ending event that
    // repeats the last step of that name word for word is ignored (the same event seen
    // over the socket and again on replay). A step that ends with a summary adds it to
    // summaries.
    void recordTool(const QString &name, const QString &summary, const QString &status);
    // Applies one stored update: label and text replace when not empty, after when 1 or
    // more, attempt when given, the tool through recordTool, finished/outcome through
    // record ("completed" when no outcome is named). An update of another run, or one at
    // or below eventCursor (already applied), changes nothing; eventCursor advances.
    void replay(const ActivityUpdate &update);
    // This lane, rebuilt by replaying a run's stored updates from its first one, put
    // together with onto, the lane the client already holds for the run: merged(*this,
    // onto); onto unchanged when the runs differ. Step ids are ordinals, so only a replay
    // of the whole history names its steps as onto does: to apply a few new updates, replay
    // them onto (a copy of) the held lane instead, which also skips what it already applied.
    Lane replayed(const Lane &onto) const;

    // a, then the entries of b not in a; empty entries dropped.
    static QStringList mergedSummaries(const QStringList &a, const QStringList &b);
    // a's steps then b's new ones, a step being the same step when its id matches. A step
    // moves forward only: an open copy of an ended step is ignored, so the step never
    // returns to "started"; otherwise b's copy wins (its title and detail when not empty).
    static QList<Activity> mergedTools(const QList<Activity> &a, const QList<Activity> &b);
    // Two records of one run, a the earlier: histories merged (a's first); finished when
    // either is, a's outcome before b's; the highest attempt and eventCursor. Label, text and
    // after (each when set) come from the record that knows more: the finished one when only
    // one is; else, when both applied stored updates, the one with the higher eventCursor;
    // else b.
    static Lane merged(const Lane &a, const Lane &b);
    // One lane per run id, at the place of its first appearance, later records merged
    // into earlier ones.
    static QList<Lane> coalesced(const QList<Lane> &lanes);

    bool operator==(const Lane &) const = default;
};
