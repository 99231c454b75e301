#pragma once

#include <QList>
#include <QString>

// The neutral result of rendering a message: what every writer (rich text, terminal, plain)
// draws from. No fonts or colours here; those belong to the writers.
namespace Markup {

// The inline styles in force at one point of a message.
struct Style {
    bool bold = false;
    bool italic = false;
    bool underline = false;
    bool strike = false;
    bool code = false;
    bool pre = false;
    bool quote = false;
    QString link; // empty, or an http(s) or mailto target

    bool operator==(const Style &) const = default;
};

struct Run {
    QString text;
    Style style;

    bool operator==(const Run &) const = default;
};

// One displayed line, or one table cell: its runs (direction isolates already in the text)
// and its own direction.
struct Line {
    QList<Run> runs;
    bool rtl = false;

    QString text() const;
    bool operator==(const Line &) const = default;
};

struct Table {
    QList<Line> head;
    QList<QList<Line>> rows; // each as wide as the head
    bool rtl = false;

    bool operator==(const Table &) const = default;
};

struct Block {
    enum class Kind { Line, Table };

    Kind kind = Kind::Line;
    Line line;   // Kind::Line
    Table table; // Kind::Table

    bool operator==(const Block &) const = default;
};

} // namespace Markup
