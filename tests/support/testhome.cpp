#include "testhome.h"

TestHome::TestHome()
    : m_previous(qgetenv("HALVENMARK_HOME"))
{
    qputenv("HALVENMARK_HOME", m_dir.path().toUtf8());
    // Secrets go to the owner-only file, never to the desktop keychain of whoever runs the tests.
    qputenv("HALVENMARK_SECRETS", "file");
}

TestHome::~TestHome()
{
    // Only undo our own setting: a newer home made before this one ended stays in force.
    if (qgetenv("HALVENMARK_HOME") != m_dir.path().toUtf8())
        return;
    if (m_previous.isEmpty())
        qunsetenv("HALVENMARK_HOME");
    else
        qputenv("HALVENMARK_HOME", m_previous);
}
