#include "corpus.h"

#include <random>

namespace Corpus {

namespace {

const char *const english[] = {
    "I checked the build and the tests pass on both machines.",
    "The deployment finished, but the cache was cold for a minute.",
    "Here is what I changed and why it matters for the release.",
    "You asked about the schedule: the task runs every night at 02:30.",
    "The log shows three retries before the upload went through.",
    "Nothing else needs your attention today.",
    "I could not reach the server, so I kept the draft locally.",
    "The report is attached; totals are at the bottom.",
};

const char *const hebrew[] = {
    "בדקתי את הבנייה והבדיקות עוברות בשתי המכונות.",
    "ההעלאה הסתיימה, אבל המטמון היה קר לדקה.",
    "הנה מה ששיניתי ולמה זה חשוב לגרסה הבאה.",
    "שאלת על לוח הזמנים: המשימה רצה כל לילה ב-02:30.",
    "ביומן רואים שלושה ניסיונות לפני שההעלאה עברה.",
    "אין עוד דבר שדורש את תשומת ליבך היום.",
    "לא הצלחתי להגיע לשרת, אז שמרתי את הטיוטה מקומית.",
    "הדוח מצורף; הסיכומים בתחתית.",
};

const char *const russian[] = {
    "Я проверил сборку, тесты проходят на обеих машинах.",
    "Развёртывание завершено, но кэш минуту был холодным.",
    "Вот что я изменил и почему это важно для релиза.",
    "Вы спрашивали о расписании: задача запускается каждую ночь в 02:30.",
    "В журнале видно три повтора, прежде чем загрузка прошла.",
    "Больше ничего не требует вашего внимания сегодня.",
};

// Latin phrases that land inside Hebrew lines: paths, commands, names with numbers.
const char *const inserts[] = {
    "/usr/local/bin",
    "~/projects/halvenmark/src/chat/markup",
    "src/net/api.cpp:42",
    "iOS 17.2",
    "Claude Code",
    "git status",
    "build 5, step 3",
    "C:\\Users\\me\\notes",
    "my\\_file\\_name.txt",
    "user@example.com",
    "v2.4.1",
    "WhatsApp",
};

const char *const links[] = {
    "[the docs](https://docs.example.com/guide/start)",
    "https://github.com/example/project/pull/128?tab=files&amp;w=1",
    "[ticket](https://tracker.example.com/issues/4711)",
    "http://localhost:8080/status",
    "<a href=\"https://example.org/report.pdf\">the report</a>",
    "[write to me](mailto:agent@example.com)",
};

const char *const code[] = {
    "<code>npm run build</code>",
    "<code>SELECT count(*) FROM runs WHERE status = &#39;done&#39;</code>",
    "<code>ls -la ~/Downloads</code>",
    "<code>x &lt; y &amp;&amp; y &gt; z</code>",
};

const char *const pre[] = {
    "<pre>def merge(a, b, **options):\n    for k, v in b.items():\n        a[k] = v\n"
    "    return a\n</pre>",
    "<pre>$ systemctl status agent\n● agent.service - Halvenmark agent\n   Active: active "
    "(running) since Mon 2024-06-10 09:12:44 UTC\n</pre>",
    "<pre>| not | a | table |\n|---|---|---|\nif (a &lt; b) { return *p; }\n</pre>",
};

const char *const emphasis[] = {
    "**Important:**",  "**Готово.**",           "**חשוב:**",
    "<b>Note</b>",     "<i>draft</i>",          "<u>deadline</u>",
    "<s>old plan</s>", "<strong>done</strong>", "<em>maybe</em>",
};

template <typename T, size_t N> const char *pick(std::mt19937 &random, const T (&pool)[N])
{
    return pool[std::uniform_int_distribution<size_t>(0, N - 1)(random)];
}

int chance(std::mt19937 &random)
{
    return std::uniform_int_distribution<int>(0, 99)(random);
}

QByteArray sentence(std::mt19937 &random, int language)
{
    QByteArray out = language == 0   ? pick(random, english)
                     : language == 1 ? pick(random, hebrew)
                                     : pick(random, russian);
    const int c = chance(random);
    if (c < 25)
        out = QByteArray(pick(random, emphasis)) + ' ' + out;
    else if (c < 45)
        out += QByteArray(" ") + pick(random, inserts) + '.';
    else if (c < 60)
        out += QByteArray(" ") + pick(random, links);
    else if (c < 70)
        out += QByteArray(" ") + pick(random, code);
    return out;
}

QByteArray table(std::mt19937 &random)
{
    QByteArray out = "| שם | Status | Время |\n|:---|:---:|---:|\n";
    const int rows = std::uniform_int_distribution<int>(2, 8)(random);
    for (int r = 0; r < rows; ++r) {
        out += "| " + QByteArray(pick(random, inserts)) + " | ";
        out += chance(random) < 50 ? "**ok**" : "נכשל";
        out += " | " + QByteArray::number(r * 7 % 60) + " мин |\n";
    }
    return out;
}

QByteArray reply(std::mt19937 &random)
{
    QByteArray out;
    const int language = std::uniform_int_distribution<int>(0, 2)(random);
    const int paragraphs = std::uniform_int_distribution<int>(2, 9)(random);
    for (int p = 0; p < paragraphs; ++p) {
        const int c = chance(random);
        if (c < 8) {
            out += table(random);
        } else if (c < 14) {
            out += pick(random, pre);
        } else if (c < 18) {
            out += "<blockquote>" + sentence(random, language) + "</blockquote>";
        } else {
            const int sentences = std::uniform_int_distribution<int>(1, 4)(random);
            for (int s = 0; s < sentences; ++s) {
                // Now and then a sentence in another of the three languages.
                const int l = chance(random) < 20 ? (language + 1 + s % 2) % 3 : language;
                out += sentence(random, l) + ' ';
            }
        }
        out += "\n\n";
    }
    return out;
}

} // namespace

QList<QByteArray> replies(qsizetype totalBytes, unsigned seed)
{
    std::mt19937 random(seed);
    QList<QByteArray> out;
    qsizetype total = 0;
    while (total < totalBytes) {
        out.append(reply(random));
        total += out.last().size();
    }
    return out;
}

} // namespace Corpus
