#pragma once

#include <QObject>

// The orderly end of the process. When the event loop ends (aboutToQuit) or, for programs that
// never run one, when the application object goes, `begins` is emitted once: every wait under
// way wakes, every request is aborted and every long-running loop sees `begun()` and returns,
// so no coroutine is left suspended past the end of the process.
class Shutdown : public QObject
{
    Q_OBJECT

public:
    // Thrown by a wait started after the end began, so every loop unwinds at its next wait.
    // Not a std::exception: handlers that retry on failures let it through.
    struct Ended {};

    // The one instance, on the main thread; made on first use.
    static Shutdown &instance();
    static bool begun();
    // Ends everything under way now. Safe to call more than once; later calls do nothing.
    static void begin();

signals:
    // Connect with a receiver of your own so the connection ends with it.
    void begins();

private:
    Shutdown();
    // Runs from the application's destructor, after which no event loop will run again.
    static void last();

    bool m_begun = false;
    bool m_hooked = false;
};
