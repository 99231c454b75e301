#pragma once

#include <QObject>
#include <QString>

// The language as the screens observe it. The app creates one on the main thread and hands
// it to QML; L::set tells every live instance, so a new language (from the user or from the
// profile) re-lays the window at once. Nothing breaks when no instance exists.
class Language : public QObject
{
    Q_OBJECT
    // The current code: "he", "en" or "ru".
    Q_PROPERTY(QString language READ language NOTIFY languageChanged)
    // True when the stored language is Hebrew: the root view mirrors its layout.
    Q_PROPERTY(bool rightToLeft READ rightToLeft NOTIFY rightToLeftChanged)

public:
    explicit Language(QObject *parent = nullptr);
    ~Language() override;

    QString language() const { return m_language; }
    bool rightToLeft() const { return m_rightToLeft; }

    // Re-reads the stored setting and notifies what changed.
    void reread();

    // Called by L::set after storing, from any thread: each instance re-reads on its own thread.
    static void settingStored();

signals:
    void languageChanged();
    void rightToLeftChanged();

private:
    QString m_language;
    bool m_rightToLeft = false;
};
