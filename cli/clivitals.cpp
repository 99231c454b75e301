#include "clivitals.h"

#include "app/crash.h"
#include "session/session.h"

#include <QCoreApplication>
#include <QTimer>

using namespace Qt::StringLiterals;

namespace CliVitals {

bool interactive(const Invocation &in)
{
    return (in.command == u"chat" && in.args.isEmpty()) || in.command == u"watch";
}

void arm(const Invocation &in, const Clock &clock, ReportQueue::Poster post)
{
    Crash::Setup setup;
    setup.post = std::move(post);
    Crash::arm(clock, setup);
    Crash::setSurface(u"cli "_s + in.command);
    if (interactive(in))
        Crash::setForeground(true);
    // The session is made after arming; reports need its cookie, so they wait for it.
    QTimer::singleShot(0, QCoreApplication::instance(), [] {
        Session *session = Session::shared();
        if (!session)
            return;
        QObject::connect(session, &Session::gateChanged, session, [session] {
            if (session->gate() == Session::Gate::Ready && Crash::waiting() > 0) {
                auto sending = Crash::flush();
                Q_UNUSED(sending)
            }
        });
    });
}

} // namespace CliVitals
