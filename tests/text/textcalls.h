#pragma once

#include <QList>
#include <QString>

// Finds the L::t calls in C++ source text, so a test can hold Ru::words to the texts the
// code base really passes. A small tokenizer rather than a regular expression: texts hold
// commas, parentheses and quotes, and calls span lines.
struct TextCall
{
    int line = 0;       // 1-based line of "L::t"
    int arguments = 0;  // top-level arguments
    bool literal = false; // the English (second) argument is a plain string literal
    QString english;    // its text, when literal
};

QList<TextCall> textCalls(const QString &source);
