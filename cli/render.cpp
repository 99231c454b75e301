#include "render.h"

#include "chat/markup/ansiwriter.h"
#include "chat/markup/htmlwriter.h"
#include "chat/markup/markup.h"
#include "text/l.h"

#include <QByteArray>

#include <cstdio>

#include <sys/ioctl.h>
#include <unistd.h>

namespace RenderCommand {

namespace {

void put(FILE *stream, const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stream);
    std::fflush(stream);
}

bool readAll(QByteArray &into)
{
    char chunk[65536];
    while (true) {
        const size_t got = std::fread(chunk, 1, sizeof chunk, stdin);
        into.append(chunk, qsizetype(got));
        if (got < sizeof chunk)
            return !std::ferror(stdin);
    }
}

} // namespace

bool colourWanted()
{
    return isatty(STDOUT_FILENO) && qEnvironmentVariable("NO_COLOR").isEmpty();
}

int terminalWidth()
{
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0)
        return size.ws_col;
    bool ok = false;
    const int columns = qEnvironmentVariableIntValue("COLUMNS", &ok);
    return ok && columns > 0 ? columns : 80;
}

bool hyperlinksShown(const QByteArray &term, bool inTmux)
{
    return !inTmux && !term.isEmpty() && term != "dumb" && term != "linux" && !term.startsWith("screen")
           && !term.startsWith("tmux");
}

namespace {
bool bidiAsked = false;
}

void setBidi(bool on)
{
    bidiAsked = on;
}

const Markup::AnsiWriter::Options &options()
{
    static const Markup::AnsiWriter::Options once = [] {
        Markup::AnsiWriter::Options o;
        const bool terminal = isatty(STDOUT_FILENO) == 1;
        o.width = terminalWidth();
        o.colour = colourWanted();
        o.hyperlinks = terminal && hyperlinksShown(qgetenv("TERM"), !qEnvironmentVariableIsEmpty("TMUX"));
        o.marks = terminal || bidiAsked;
        return o;
    }();
    return once;
}

int run(const QString &mode)
{
    if (mode != u"html" && mode != u"ansi" && mode != u"plain") {
        put(stderr, L::t(QStringLiteral("מצב תצוגה לא מוכר: %1 (html, ansi או plain)"),
                         QStringLiteral("Unknown render mode: %1 (html, ansi or plain)"),
                         QStringLiteral("Неизвестный режим вывода: %1 (html, ansi или plain)"))
                            .arg(mode) +
                        u'\n');
        return 2;
    }
    QByteArray input;
    if (!readAll(input)) {
        put(stderr, L::t(QStringLiteral("לא ניתן לקרוא את ההודעה מהקלט."),
                         QStringLiteral("Could not read the message from stdin."),
                         QStringLiteral("Не удалось прочитать сообщение из stdin.")) +
                        u'\n');
        return 1;
    }
    // Invalid UTF-8 is shown as U+FFFD rather than refused.
    const QString text = QString::fromUtf8(input);

    QString out;
    if (mode == u"html")
        out = Markup::HtmlWriter::render(text);
    else if (mode == u"ansi")
        out = Markup::AnsiWriter::render(text, options());
    else
        out = Markup::shown(text);
    if (!out.isEmpty())
        put(stdout, out + u'\n');
    return 0;
}

} // namespace RenderCommand
