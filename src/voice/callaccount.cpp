// The call's account-side requests: availability, the journal, preferences and memory.
#include "voice/call.h"
#include "voice/callendpoints.h"
#include "voice/voicelog.h"

#include "text/l.h"
#include "voice/calllink.h"
#include "voice/voicetuning.h"

#include <QJsonArray>
#include <QLoggingCategory>

#include "platform/sleeper.h"

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

void Call::resetAccount()
{
    m_heard.clear();
    m_said.clear();
    m_lines.clear();
    m_userLineID.clear();
    m_botLineID.clear();
    m_trace.clear();
    m_steps.clear();
    m_fastAnswers.clear();
    m_resume.clear();
    m_shortMemory = 0;
    m_longMemory = 0;
    m_memoryStatus.clear();
    m_voice = u"Orus"_s;
    m_language = u"auto"_s;
    m_provider = u"openai"_s;
    m_activeVoice.clear();
    m_voiceNames.clear();
    m_unavailableReason.clear();
    m_notice.clear();
    emit transcriptChanged();
    emit traceChanged();
    emit workChanged();
    emit memoryChanged();
    emit settingsChanged();
    emit noticeChanged();
}

QCoro::Task<> Call::checkAvailability(QString account)
{
    QPointer<Call> self(this);
    if (account != m_account) {
        if (isActive()) {
            hangUp();
        }
        m_account = account;
        resetAccount();
        m_tuning->activate(account);
    }
    std::optional<QJsonObject> status;
    try {
        status = co_await m_link->get(m_scope.path(CallEndpoints::status()), 25s);
    } catch (const std::exception &e) {
        qCInfo(lcCall) << "status failed:" << e.what();
    }
    if (!self) {
        co_return;
    }
    if (!status) {
        m_unavailableReason =
            L::t(u"לא ניתן לבדוק את החיבור. פתחו שוב את הקול כדי לנסות שוב."_s,
                 u"Could not check the connection. Reopen Voice to try again."_s,
                 u"Не удалось проверить соединение. Откройте голос снова, чтобы повторить."_s);
        emit availabilityChanged();
        co_return;
    }
    m_available =
        status->value(u"available"_s).toBool(false) && status->value(u"enabled"_s).toBool(true);
    m_provider = status->value(u"provider"_s).toString(m_provider);
    m_unavailableReason = status->value(u"reason"_s).toString();
    m_availabilityChecked = true;
    emit availabilityChanged();
    emit settingsChanged();
    co_await loadJournal();
}

QCoro::Task<bool> Call::loadJournal()
{
    QPointer<Call> self(this);
    std::optional<QJsonObject> journal;
    try {
        journal = co_await m_link->get(m_scope.path(CallEndpoints::journal()), 25s);
    } catch (const std::exception &e) {
        qCInfo(lcCall) << "journal failed:" << e.what();
    }
    if (!self || !journal) {
        co_return false;
    }
    if (!isActive()) {
        // A running call keeps its live transcript; the journal fills the screen between calls.
        m_lines.clear();
        m_userLineID.clear();
        m_botLineID.clear();
        for (const QJsonValue &v : journal->value(u"messages"_s).toArray()) {
            const QJsonObject m = v.toObject();
            const QString text = m.value(u"text"_s).toString();
            if (!text.isEmpty()) {
                m_lines.append({u"journal-"_s + QString::number(m_lines.size()),
                                m.value(u"role"_s).toString(), text});
            }
        }
        emit transcriptChanged();
    }
    const QJsonObject memory = journal->value(u"memory"_s).toObject();
    m_shortMemory = memory.value(u"short_term"_s).toInt();
    m_longMemory = memory.value(u"long_term"_s).toInt();
    m_memoryStatus = memory.value(u"message"_s).toString(memory.value(u"status"_s).toString());
    m_memoryBusy = memory.value(u"status"_s).toString() == u"running" ||
                   journal->value(u"running"_s).toBool(false);
    emit memoryChanged();
    const QJsonObject prefs = journal->value(u"preferences"_s).toObject();
    m_voice = prefs.value(u"voice"_s).toString(m_voice);
    m_language = prefs.value(u"language"_s).toString(m_language);
    m_provider = prefs.value(u"selected_provider"_s).toString(m_provider);
    m_voiceNames.clear();
    for (const QJsonValue &v : journal->value(u"voices"_s).toArray()) {
        m_voiceNames.append(v.isObject() ? v.toObject().value(u"name"_s).toString() : v.toString());
    }
    emit settingsChanged();
    co_return true;
}

QCoro::Task<> Call::choose(QString voice, QString language, QString provider)
{
    QPointer<Call> self(this);
    QJsonObject body;
    if (!voice.isEmpty()) {
        body.insert(u"voice"_s, voice);
    }
    if (!language.isEmpty()) {
        body.insert(u"language"_s, language);
    }
    if (!provider.isEmpty()) {
        body.insert(u"provider"_s, provider);
    }
    std::optional<QJsonObject> reply;
    try {
        reply = co_await m_link->post(m_scope.path(CallEndpoints::preferences()), body);
    } catch (const std::exception &e) {
        qCInfo(lcCall) << "preferences failed:" << e.what();
    }
    if (!self) {
        co_return;
    }
    if (!reply) {
        setNotice(L::t(u"לא ניתן לשמור את ההעדפות"_s, u"Could not save the preferences"_s,
                       u"Не удалось сохранить настройки"_s));
        co_return;
    }
    const QJsonObject prefs = reply->value(u"preferences"_s).toObject();
    m_voice = prefs.value(u"voice"_s).toString(m_voice);
    m_language = prefs.value(u"language"_s).toString(m_language);
    m_provider = prefs.value(u"selected_provider"_s).toString(m_provider);
    emit settingsChanged();
    co_await checkAvailability(m_account);
}

QCoro::Task<> Call::consolidateMemory()
{
    QPointer<Call> self(this);
    m_memoryBusy = true;
    emit memoryChanged();
    std::optional<QJsonObject> reply;
    try {
        reply = co_await m_link->post(m_scope.path(CallEndpoints::memory()), scopeFields());
    } catch (const std::exception &e) {
        qCInfo(lcCall) << "memory failed:" << e.what();
    }
    if (!self) {
        co_return;
    }
    if (!reply) {
        m_memoryBusy = false;
        m_memoryStatus = L::t(u"לא ניתן לעדכן את הזיכרון"_s, u"Could not update the memory"_s,
                              u"Не удалось обновить память"_s);
        emit memoryChanged();
        co_return;
    }
    m_memoryStatus = reply->value(u"message"_s).toString();
    emit memoryChanged();
    // While the job runs the journal is asked again every few seconds (at most a minute).
    bool running = reply->value(u"status"_s).toString() == u"running";
    for (int round = 0; running && round < 20; ++round) {
        co_await m_sleeper->sleep(3s);
        if (!self) {
            co_return;
        }
        const bool loaded = co_await loadJournal();
        if (!self) {
            co_return;
        }
        running = loaded && m_memoryBusy;
    }
    m_memoryBusy = false;
    emit memoryChanged();
}
