#include "crash.h"
#include "app/applog.h"

#include "crashpath.h"
#include "crashreport.h"
#include "diagnostics.h"
#include "platform/appdata.h"
#include "platform/clock.h"
#include "platform/atomicfile.h"
#include "vitals.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QLockFile>
#include <QLoggingCategory>
#include <QTimer>

#include <cxxabi.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <exception>
#include <mutex>
#include <thread>

using namespace Qt::StringLiterals;

namespace {

constexpr int signals_[] = {SIGABRT, SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGTRAP};

// One armed run. Made once and never destroyed while armed: a signal or an exit can come
// at any moment, and no destructor may race them.
struct Monitor {
    QString folder;
    const Clock *clock = nullptr;
    ReportQueue::Poster post;
    std::optional<ReportQueue> queue;
    std::unique_ptr<QLockFile> owner;

    std::mutex lock; // guards vitals; held only to copy or update a few numbers
    Crash::Vitals vitals;

    QTimer *heartbeat = nullptr;
    // The watcher writes run.json, so the main thread never waits on the disk; without a
    // watcher the main thread writes it itself.
    std::thread watcher;
    std::mutex waking; // guards stopping and dirty; never held while writing
    std::condition_variable wake;
    bool stopping = false;
    bool dirty = false;

    QString runPath() const { return QDir(folder).filePath(u"run.json"_s); }
    QString crashPath() const { return QDir(folder).filePath(u"crash.txt"_s); }

    QJsonObject snapshot(bool ended, bool watching)
    {
        const std::lock_guard guard(lock);
        const double now = clock->uptime();
        if (watching)
            vitals.watch(now);
        return vitals.toJson(now, ended);
    }

    void write(const QJsonObject &json)
    {
        AtomicFile::write(runPath(), QJsonDocument(json).toJson(QJsonDocument::Compact));
    }

    void note()
    {
        if (!watcher.joinable()) {
            write(snapshot(false, false));
            return;
        }
        {
            const std::lock_guard guard(waking);
            dirty = true;
        }
        wake.notify_all();
    }

    void watch(double every)
    {
        const auto period = std::chrono::duration<double>(every);
        constexpr double refresh = 30; // seconds: the uptime alone is not worth more writes
        QJsonObject written;
        double writtenAt = clock->uptime();
        for (;;) {
            bool noted = false;
            {
                std::unique_lock sleeping(waking);
                wake.wait_for(sleeping, period, [this] { return stopping || dirty; });
                if (stopping)
                    return;
                noted = std::exchange(dirty, false);
            }
            const QJsonObject json = snapshot(false, true);
            QJsonObject shape = json;
            shape.remove(u"uptime_s"_s);
            const double now = clock->uptime();
            // Each write is a synced file: only when something a report would use changed.
            if (noted || shape != written || now - writtenAt >= refresh) {
                write(json);
                written = shape;
                writtenAt = now;
            }
        }
    }

    void stopWatcher()
    {
        {
            const std::lock_guard guard(waking);
            stopping = true;
        }
        wake.notify_all();
        if (watcher.joinable())
            watcher.join();
    }
};

Monitor *g_monitor = nullptr;
std::atomic<bool> g_handlers{false};
bool g_flushing = false;
char g_altStack[64 * 1024];

extern "C" void onSignal(int signal)
{
    CrashPath::writeFromSignal(signal);
}

void onTerminate()
{
    const char *type = "unknown";
    std::string name;
    std::string what;
    if (std::type_info *info = abi::__cxa_current_exception_type()) {
        int status = 0;
        char *demangled = abi::__cxa_demangle(info->name(), nullptr, nullptr, &status);
        name = status == 0 && demangled ? demangled : info->name();
        std::free(demangled);
        type = name.c_str();
        try {
            throw;
        } catch (const std::exception &e) {
            what = e.what();
        } catch (...) {
        }
    } else {
        type = "std::terminate";
    }
    CrashPath::writeException(type, what.c_str());
    // The exception is the report: abort must not overwrite it with "signal 6".
    signal(SIGABRT, SIG_DFL);
    std::abort();
}

void installHandlers()
{
    if (g_handlers.exchange(true))
        return;
    // A stack overflow leaves no stack for the handler: it runs on its own.
    stack_t stack = {};
    stack.ss_sp = g_altStack;
    stack.ss_size = sizeof g_altStack;
    sigaltstack(&stack, nullptr);
    struct sigaction action = {};
    action.sa_handler = onSignal;
    action.sa_flags = SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    for (int signal : signals_)
        sigaction(signal, &action, nullptr);
    std::set_terminate(onTerminate);
}

} // namespace

namespace Crash {

QString folder()
{
    const QString path = AppData::path(u"crash"_s);
    QDir().mkpath(path);
    return path;
}

bool armed()
{
    return g_monitor != nullptr;
}

std::optional<QJsonObject> deliverPrevious()
{
    if (!g_monitor)
        return std::nullopt;
    const std::optional<QByteArray> crashText = AtomicFile::read(g_monitor->crashPath());
    const std::optional<QByteArray> run = AtomicFile::read(g_monitor->runPath());
    const std::optional<QJsonObject> report = CrashReport::previous(crashText, run);
    // Delivered means queued on disk: the files go once the report is safe.
    if (report && !g_monitor->queue->add(*report))
        return report;
    QFile::remove(g_monitor->crashPath());
    QFile::remove(g_monitor->runPath());
    return report;
}

void arm(const Clock &clock, Setup setup)
{
    if (g_monitor)
        return;
    auto *monitor = new Monitor;
    monitor->folder = setup.folder.isEmpty() ? folder() : setup.folder;
    QDir().mkpath(monitor->folder);
    monitor->clock = &clock;
    monitor->post = setup.post;
    monitor->queue.emplace(QDir(monitor->folder).filePath(u"reports"_s), clock);

    // 1. The crash path, before anything else can crash.
    CrashPath::set(monitor->crashPath());
    // Several terminal clients may run at once: the first owns the vitals and the reports.
    monitor->owner = std::make_unique<QLockFile>(QDir(monitor->folder).filePath(u"run.lock"_s));
    monitor->owner->setStaleLockTime(0);
    if (!monitor->owner->tryLock(0)) {
        qCDebug(lcCrash) << "another run owns" << monitor->folder;
        installHandlers();
        delete monitor;
        return;
    }
    g_monitor = monitor;
    // 2. What the previous run left.
    deliverPrevious();
    // 3. Signals and uncaught exceptions.
    installHandlers();
    // 4. The vitals kept current, also while the main thread is stuck.
    {
        const std::lock_guard guard(monitor->lock);
        monitor->vitals = Vitals();
        monitor->vitals.start(monitor->clock->uptime());
    }
    if (setup.watchEvery > 0) {
        const double every = setup.watchEvery;
        monitor->watcher = std::thread([monitor, every] { monitor->watch(every); });
    }
    // 5. The heartbeat.
    monitor->heartbeat = new QTimer(QCoreApplication::instance());
    monitor->heartbeat->setTimerType(Qt::PreciseTimer);
    monitor->heartbeat->setInterval(std::chrono::milliseconds(int(Vitals::period * 1000)));
    QObject::connect(monitor->heartbeat, &QTimer::timeout, [monitor] {
        const std::lock_guard guard(monitor->lock);
        monitor->vitals.beat(monitor->clock->uptime());
    });
    monitor->heartbeat->start();
    // A quit through the event loop is a normal end too.
    if (QCoreApplication::instance())
        QObject::connect(QCoreApplication::instance(), &QCoreApplication::aboutToQuit,
                         monitor->heartbeat, [] { settled(); });
    // 6. Diagnostics and the first run.json; the queue goes out once the loop runs.
    Diagnostics::drain(*monitor->queue, QDir(monitor->folder).filePath(u"diagnostics"_s));
    monitor->write(monitor->snapshot(false, false));
    QTimer::singleShot(0, monitor->heartbeat, [] {
        auto sending = flush();
        Q_UNUSED(sending)
    });
}

void setForeground(bool foreground)
{
    if (!g_monitor)
        return;
    {
        const std::lock_guard guard(g_monitor->lock);
        g_monitor->vitals.foreground = foreground;
    }
    note();
}

void setSurface(const QString &surface)
{
    if (!g_monitor)
        return;
    {
        const std::lock_guard guard(g_monitor->lock);
        g_monitor->vitals.surface = surface;
    }
    note();
}

void note()
{
    if (g_monitor)
        g_monitor->note();
}

void settled()
{
    Monitor *monitor = g_monitor;
    if (!monitor)
        return;
    g_monitor = nullptr;
    monitor->stopWatcher();
    delete monitor->heartbeat;
    monitor->heartbeat = nullptr;
    monitor->write(monitor->snapshot(true, false));
    monitor->owner->unlock();
    delete monitor;
}

QCoro::Task<int> flush()
{
    // One flush at a time, so that no report goes out twice.
    if (!g_monitor || g_flushing || !g_monitor->post)
        co_return 0;
    g_flushing = true;
    // A copy: the run may settle while the reports are on their way.
    ReportQueue queue = *g_monitor->queue;
    ReportQueue::Poster post = g_monitor->post;
    int sent = 0;
    try {
        sent = co_await queue.flush(post);
    } catch (...) {
    }
    g_flushing = false;
    co_return sent;
}

bool flushing()
{
    return g_flushing;
}

int waiting()
{
    return g_monitor ? g_monitor->queue->size() : 0;
}

} // namespace Crash
