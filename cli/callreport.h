#pragma once

#include <QHash>
#include <QObject>
#include <QString>

class Call;

// What a running call shows in the terminal: with --json one object per line for each change;
// otherwise a block redrawn in place on a terminal (phase and meter, the two live lines, the
// steps), or the phases and finished lines one by one when stdout is a file or a pipe.
class CallReport : public QObject
{
    Q_OBJECT

public:
    enum class Mode { Json, Live, Plain };

    CallReport(Call *call, Mode mode, QObject *parent = nullptr);

    // Redraws the live block; called a few times a second.
    void redraw();
    // The last state once the call is over (the live block stays on screen).
    void finish();

    static QString phaseName(int phase);
    // A meter of ten cells for a 0..1 level.
    static QString meter(double level);

private:
    void phase();
    void lines(bool all);
    void work();
    void trace();

    Call *m_call;
    Mode m_mode;
    QHash<QString, QString> m_shown; // key -> what was last printed for it
    int m_drawn = 0;                 // lines of the live block on screen
};
