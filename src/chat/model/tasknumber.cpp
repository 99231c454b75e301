#include "chat/model/tasknumber.h"

#include <QRegularExpression>
#include <QString>

#include <limits>

using namespace Qt::StringLiterals;

namespace TaskNumber {

namespace {

bool isDigit(QChar c)
{
    return c >= u'0' && c <= u'9';
}

// Positive decimal digits at the start of text, ending the word; their length in *used.
std::optional<int> leadingNumber(QStringView text, qsizetype *used = nullptr)
{
    qsizetype n = 0;
    qint64 value = 0;
    while (n < text.size() && isDigit(text[n])) {
        value = value * 10 + (text[n].unicode() - u'0');
        if (value > std::numeric_limits<int>::max())
            return std::nullopt;
        ++n;
    }
    if (n == 0 || value < 1)
        return std::nullopt;
    if (n < text.size() && text[n].isLetterOrNumber())
        return std::nullopt;
    if (used)
        *used = n;
    return int(value);
}

} // namespace

std::optional<int> ofField(QStringView field)
{
    QStringView rest = field.trimmed();
    if (rest.startsWith(u'#'))
        rest = rest.mid(1);
    else if (rest.startsWith(u"p-", Qt::CaseInsensitive))
        rest = rest.mid(2);
    qsizetype used = 0;
    const auto number = leadingNumber(rest, &used);
    if (!number || used != rest.size())
        return std::nullopt;
    return number;
}

std::optional<int> opening(QStringView text)
{
    qsizetype i = 0;
    while (i < text.size() && !text[i].isLetterOrNumber())
        ++i;
    const QStringView rest = text.mid(i);

    static constexpr QStringView words[] = {u"task", u"задача", u"משימה"};
    for (QStringView word : words) {
        if (!rest.startsWith(word, Qt::CaseInsensitive))
            continue;
        qsizetype j = word.size();
        while (j < rest.size()
               && (rest[j] == u':' || rest[j] == u'_' || rest[j] == u'-' || rest[j].isSpace()))
            ++j;
        if (j < rest.size() && (rest[j] == u'#' || rest[j] == u'№'))
            ++j;
        while (j < rest.size() && rest[j].isSpace())
            ++j;
        return leadingNumber(rest.mid(j));
    }
    return std::nullopt;
}

std::optional<int> stopCommand(QStringView text)
{
    static const QRegularExpression form(u"^/stop\\s+#?(\\d{1,9})$"_s);
    const auto match = form.match(text.trimmed());
    const int n = match.hasMatch() ? match.capturedView(1).toInt() : 0;
    return n > 0 ? std::optional(n) : std::nullopt;
}

} // namespace TaskNumber
