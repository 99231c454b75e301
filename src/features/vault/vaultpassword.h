#pragma once

#include <QString>

#include <functional>

// New passwords: characters that cannot be mistaken for one another when read.
namespace VaultPassword {

inline constexpr char16_t alphabet[] =
    u"ABCDEFGHJKLMNPQRSTUVWXYZabcdefghijkmnopqrstuvwxyz23456789!@#$%&*-_=+?";
inline constexpr int alphabetSize = 69;
inline constexpr int length = 20;

// One uniform index below `bound` from 64-bit draws: draws in the uneven top remainder are
// thrown away and drawn again, so no index is favoured.
quint64 uniform(quint64 bound, const std::function<quint64()> &draw);

// From the system's secure random source.
QString generate();
// The same from any source of 64-bit draws.
QString generate(const std::function<quint64()> &draw);

} // namespace VaultPassword
