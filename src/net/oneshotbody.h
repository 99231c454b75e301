#pragma once

#include <QByteArray>
#include <QIODevice>

// A request body that Qt's HTTP layer can send only once. Qt quietly re-sends a request whose
// connection dropped before the reply (up to three times); it must rewind the body first, and
// this body refuses to rewind. So the wire carries exactly the attempts the transport makes
// itself. (A bodiless request gets an empty one for the same reason.)
class OneShotBody : public QIODevice
{
    Q_OBJECT

public:
    explicit OneShotBody(QByteArray bytes, QObject *parent = nullptr);

    bool isSequential() const override { return false; }
    qint64 size() const override { return m_bytes.size(); }
    bool reset() override;
    bool seek(qint64 pos) override;

protected:
    qint64 readData(char *data, qint64 maxSize) override;
    qint64 writeData(const char *, qint64) override { return -1; }

private:
    QByteArray m_bytes;
};
