#include "oneshotbody.h"

#include <cstring>

OneShotBody::OneShotBody(QByteArray bytes, QObject *parent)
    : QIODevice(parent)
    , m_bytes(std::move(bytes))
{
    open(QIODevice::ReadOnly);
}

bool OneShotBody::reset()
{
    return seek(0);
}

bool OneShotBody::seek(qint64)
{
    // Qt reads a body from where it stands for the first send and rewinds only to send it
    // again, even an empty one: that is the one thing refused.
    return false;
}

qint64 OneShotBody::readData(char *data, qint64 maxSize)
{
    const qint64 at = pos();
    const qint64 n = qMin(maxSize, qint64(m_bytes.size()) - at);
    if (n <= 0)
        return -1;
    std::memcpy(data, m_bytes.constData() + at, size_t(n));
    return n;
}
