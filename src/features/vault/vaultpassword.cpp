#include "vaultpassword.h"

#include <QRandomGenerator>

#include <limits>

static_assert(std::size(VaultPassword::alphabet) - 1 == VaultPassword::alphabetSize);

namespace VaultPassword {

quint64 uniform(quint64 bound, const std::function<quint64()> &draw)
{
    // 2^64 mod bound: the draws at the very top that would make low indexes likelier.
    const quint64 remainder = (std::numeric_limits<quint64>::max() % bound + 1) % bound;
    const quint64 limit = std::numeric_limits<quint64>::max() - remainder; // last fair draw
    for (;;) {
        const quint64 value = draw();
        if (value <= limit)
            return value % bound;
    }
}

QString generate(const std::function<quint64()> &draw)
{
    QString out;
    out.reserve(length);
    for (int i = 0; i < length; ++i)
        out += QChar(alphabet[uniform(alphabetSize, draw)]);
    return out;
}

QString generate()
{
    return generate([] { return QRandomGenerator::system()->generate64(); });
}

} // namespace VaultPassword
