#include "chatscreen.h"

#include "chatlines.h"

#include "chat/markup/ansiwriter.h"

#include <QCoreApplication>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// What a signal handler needs to put the terminal back: plain data, set once entered.
termios savedTerminal;
volatile sig_atomic_t terminalRaw = 0;
int signalPipe[2] = {-1, -1};

// The whole screen scrolls again, the cursor goes to the last row (a row past the end is
// clamped), pastes come plain and colours end.
const char restoreSequence[] = "\x1b[r\x1b[999;1H\x1b[?2004l\x1b[0m\r\n";
const char plainSequence[] = "\x1b[?2004l\x1b[0m";

// Async-signal-safe: a signal handler or exit may call it.
void restoreTerminal(bool wholeScreen)
{
    if (!terminalRaw)
        return;
    terminalRaw = 0;
    const char *sequence = wholeScreen ? restoreSequence : plainSequence;
    const size_t length = wholeScreen ? sizeof restoreSequence - 1 : sizeof plainSequence - 1;
    [[maybe_unused]] const ssize_t n = ::write(STDOUT_FILENO, sequence, length);
    ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &savedTerminal);
}

void restoreNow()
{
    restoreTerminal(true);
}

void onSignal(int number)
{
    const char byte = char(number);
    if (signalPipe[1] >= 0) {
        [[maybe_unused]] const ssize_t n = ::write(signalPipe[1], &byte, 1);
    }
}

struct sigaction previousFatal[NSIG];

// A crash must not leave the shell without echo: put the terminal back, then let the
// handler that was there before (the crash reporter, or the default) take it.
void onFatal(int number)
{
    restoreNow();
    ::sigaction(number, &previousFatal[number], nullptr);
    std::raise(number);
}

// Cuts a line of plain text (no escapes) to the given columns.
QString fitted(const QString &text, int columns)
{
    if (Markup::AnsiWriter::displayWidth(text) <= columns)
        return text;
    QString out;
    int used = 0;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const qsizetype length = text.at(i).isHighSurrogate() && i + 1 < text.size() ? 2 : 1;
        const QStringView one = QStringView(text).mid(i, length);
        const int w = Markup::AnsiWriter::displayWidth(one);
        if (used + w > columns - 1)
            break;
        out += one;
        used += w;
        i += length - 1;
    }
    return out + u"…"_s;
}

QByteArray moveTo(int row, int column)
{
    return "\x1b[" + QByteArray::number(row) + ';' + QByteArray::number(column) + 'H';
}

} // namespace

ChatScreen::ChatScreen() = default;

ChatScreen::~ChatScreen()
{
    leave();
}

bool ChatScreen::possible()
{
    if (isatty(STDIN_FILENO) != 1 || isatty(STDOUT_FILENO) != 1)
        return false;
    const QByteArray term = qgetenv("TERM");
    return !term.isEmpty() && term != "dumb";
}

bool ChatScreen::enter()
{
    if (m_active)
        return true;
    if (::tcgetattr(STDIN_FILENO, &m_saved) != 0)
        return false;
    termios raw = m_saved;
    raw.c_iflag &= ~tcflag_t(BRKINT | ICRNL | INPCK | ISTRIP | IXON);
    raw.c_lflag &= ~tcflag_t(ECHO | ICANON | IEXTEN | ISIG);
    raw.c_cflag |= CS8;
    raw.c_cc[VMIN] = 1;
    raw.c_cc[VTIME] = 0;
    savedTerminal = m_saved;
    if (::tcsetattr(STDIN_FILENO, TCSAFLUSH, &raw) != 0)
        return false;
    terminalRaw = 1;
    m_active = true;

    if (signalPipe[0] < 0 && ::pipe2(signalPipe, O_CLOEXEC | O_NONBLOCK) != 0)
        signalPipe[0] = signalPipe[1] = -1;
    struct sigaction action {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (int s : {SIGINT, SIGTERM, SIGHUP, SIGWINCH, SIGCONT})
        ::sigaction(s, &action, nullptr);
    static bool once = false;
    if (!once) {
        once = true;
        struct sigaction fatal {};
        fatal.sa_handler = onFatal;
        sigemptyset(&fatal.sa_mask);
        for (int s : {SIGSEGV, SIGABRT, SIGBUS, SIGFPE, SIGILL})
            ::sigaction(s, &fatal, &previousFatal[s]);
        std::atexit(restoreNow);
    }

    if (signalPipe[0] >= 0 && !m_signals) {
        m_signals = new QSocketNotifier(signalPipe[0], QSocketNotifier::Read, this);
        connect(m_signals, &QSocketNotifier::activated, this, &ChatScreen::readSignal);
    }
    m_input = new QSocketNotifier(STDIN_FILENO, QSocketNotifier::Read, this);
    connect(m_input, &QSocketNotifier::activated, this, &ChatScreen::readInput);

    measure();
    put("\x1b[?2004h");
    layout(0);
    return true;
}

void ChatScreen::leave()
{
    if (!m_active)
        return;
    m_active = false;
    // Called from a key handler too: the notifier that delivered the key goes later.
    m_input->setEnabled(false);
    m_input->deleteLater();
    m_input = nullptr;
    // Clear the bottom area, give the whole screen back, and leave the cursor on a fresh line.
    QByteArray out = "\x1b[r";
    out += moveTo(m_rows - m_drawnHeight + 1, 1) + "\x1b[J";
    put(out);
    restoreTerminal(false);
    m_drawnHeight = 0;
}

void ChatScreen::print(const QString &text)
{
    if (!m_active)
        return;
    QByteArray out = "\x1b[?25l" + moveTo(m_rows - m_drawnHeight, 1);
    QString body = text;
    body.replace(u"\r\n"_s, u"\n"_s);
    body.replace(u'\n', u"\r\n"_s);
    out += "\r\n" + body.toUtf8() + "\x1b[0m";
    put(out);
    drawBottom();
}

void ChatScreen::setBottom(const QStringList &panel, const QString &status)
{
    if (panel == m_panel && status == m_status)
        return;
    m_panel = panel;
    m_status = status;
    if (m_active)
        layout(m_drawnHeight);
}

void ChatScreen::setInput(const QString &prompt, const LineEditor::View &view, bool rightToLeft)
{
    const int before = inputHeight();
    m_prompt = prompt;
    m_view = view;
    m_rightToLeft = rightToLeft;
    if (!m_active)
        return;
    if (inputHeight() != before)
        layout(m_drawnHeight); // the input grew or shrank: the bottom area with it
    else
        drawInput(); // only the input changed: nothing else is touched
}

int ChatScreen::inputHeight() const
{
    return std::max(1, int(m_view.rows.size()));
}

void ChatScreen::drawInput()
{
    const int rows = inputHeight();
    const int top = m_rows - rows + 1;
    const int promptWidth = Markup::AnsiWriter::displayWidth(m_prompt);
    const QString mark = m_rightToLeft ? u"\u200F"_s : QString();
    QByteArray out = "\x1b[?25l";
    for (int i = 0; i < rows; ++i) {
        QString lead = QString(promptWidth, u' ');
        if (i == 0)
            lead = m_view.hiddenAbove > 0 ? u"⋮"_s + QString(promptWidth - 1, u' ') : m_prompt;
        const QString row = i < m_view.rows.size() ? m_view.rows.at(i) : QString();
        out += moveTo(top + i, 1) + "\x1b[2K" + (mark + lead + row).toUtf8();
    }
    out += moveTo(top + m_view.cursorRow, promptWidth + m_view.cursorColumn + 1) + "\x1b[?25h";
    put(out);
}

void ChatScreen::redraw()
{
    if (!m_active)
        return;
    measure();
    layout(m_drawnHeight);
}

int ChatScreen::bottomHeight() const
{
    // The transcript keeps at least a third of the screen, and never less than three rows.
    const int fixed = 1 + inputHeight();
    const int most =
        std::max(0, std::min(int(m_panel.size()), m_rows - fixed - std::max(3, m_rows / 3)));
    return most + fixed;
}

void ChatScreen::layout(int oldHeight)
{
    const int height = bottomHeight();
    QByteArray out = "\x1b[?25l";
    if (height > oldHeight) {
        // Push the transcript up to make room, inside the old region, so no line is covered.
        out += "\x1b[1;" + QByteArray::number(std::max(1, m_rows - oldHeight)) + 'r';
        out += moveTo(std::max(1, m_rows - oldHeight), 1);
        out += QByteArray(height - oldHeight, '\n');
    }
    out += "\x1b[1;" + QByteArray::number(std::max(1, m_rows - height)) + 'r';
    if (height < oldHeight) {
        // Bring the transcript down to meet the smaller bottom area: no gap of blank rows.
        out += moveTo(1, 1) + "\x1b[" + QByteArray::number(oldHeight - height) + 'T';
    }
    m_drawnHeight = height;
    put(out);
    drawBottom();
}

void ChatScreen::drawBottom()
{
    const int height = m_drawnHeight;
    const int top = m_rows - height + 1;
    const int columns = std::max(1, m_columns - 1);
    auto marked = [](const QString &line) {
        return ChatLines::rightToLeft(line) ? u"\u200F"_s + line : line;
    };
    QByteArray out = "\x1b[?25l";
    const qsizetype shown = height - 1 - inputHeight();
    for (qsizetype i = 0; i < shown; ++i) {
        // When the work does not fit, its newest lines stay.
        const QString &line = m_panel.at(m_panel.size() - shown + i);
        out += moveTo(top + int(i), 1) + "\x1b[2K" + marked(fitted(line, columns)).toUtf8();
    }
    out += moveTo(m_rows - inputHeight(), 1) + "\x1b[2K\x1b[7m" +
           marked(fitted(m_status, columns)).toUtf8() + "\x1b[0m";
    put(out);
    drawInput();
}

void ChatScreen::measure()
{
    winsize size{};
    if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 0 && size.ws_col > 0) {
        m_rows = size.ws_row;
        m_columns = size.ws_col;
    }
}

void ChatScreen::readInput()
{
    char buffer[65536];
    const ssize_t n = ::read(STDIN_FILENO, buffer, sizeof buffer);
    if (n > 0) {
        emit bytes(QByteArray(buffer, n));
        return;
    }
    if (n < 0 && (errno == EINTR || errno == EAGAIN))
        return;
    // The terminal went away (hang-up): end as on a signal.
    m_input->setEnabled(false);
    emit terminated();
}

void ChatScreen::readSignal()
{
    char numbers[16];
    const ssize_t n = ::read(signalPipe[0], numbers, sizeof numbers);
    for (ssize_t i = 0; i < n; ++i) {
        const int number = numbers[i];
        if (number == SIGWINCH) {
            measure();
            if (m_active) {
                // Terminals reflow what they hold on a new size, each its own way: start from
                // a clean screen, and the chat prints its latest lines again.
                put("\x1b[r\x1b[H\x1b[2J");
                m_drawnHeight = 0;
                layout(0);
            }
            emit resized();
        } else if (number == SIGCONT) {
            continue;
        } else {
            emit terminated();
        }
    }
}

void ChatScreen::put(const QByteArray &bytes)
{
    qsizetype done = 0;
    while (done < bytes.size()) {
        const ssize_t n =
            ::write(STDOUT_FILENO, bytes.constData() + done, size_t(bytes.size() - done));
        if (n < 0) {
            if (errno == EINTR || errno == EAGAIN)
                continue;
            return;
        }
        done += n;
    }
}
