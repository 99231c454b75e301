#pragma once

#include <QStringView>

#include <optional>

// Numbered agent tasks ("Task #12"): finding the number in the server's fields and texts.
namespace TaskNumber {

// A task_no field: "12", "#12" or "p-12" (the prefix the task endpoints use), spaces
// around allowed. Only positive numbers that fit an int.
std::optional<int> ofField(QStringView field);

// A text that opens with a task reference. Leading decoration (spaces, "**", "#", emoji,
// "[") is skipped; then the word "task" / "задача" / "משימה" (any case) followed by
// optional ":", "_", "-" or spaces, an optional "#" or "№", and the digits, which must end
// the word ("Task 12:" yes, "Task 12b" no). A bare "#1" is not enough (a markdown list or
// "#1 priority" would read as a task), and a number later in the text ("see task 4") does
// not count: only the opening names the message's task.
std::optional<int> opening(QStringView text);

// "/stop 12" (or "/stop #12", spaces around allowed) typed as a message: the task to stop.
std::optional<int> stopCommand(QStringView text);

} // namespace TaskNumber
