#pragma once

#include <QString>
#include <QTemporaryDir>

// Points HALVENMARK_HOME at a fresh folder for the life of the object, so a test
// never touches the user's real settings, secrets or caches.
class TestHome
{
public:
    TestHome();
    ~TestHome();
    TestHome(const TestHome &) = delete;
    TestHome &operator=(const TestHome &) = delete;

    QString path() const { return m_dir.path(); }

private:
    QTemporaryDir m_dir;
    QByteArray m_previous;
};
