#include "pamownerauth.h"

#include "text/l.h"

#include <QCoroThread>
#include <QThread>

#include <security/pam_appl.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <pwd.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

struct Secret {
    QByteArray bytes;
    ~Secret() { bytes.fill('\0'); }
};

// Answers every hidden prompt with the password; PAM frees what we hand it.
int converse(int count, const pam_message **messages, pam_response **responses, void *data)
{
    auto *secret = static_cast<Secret *>(data);
    auto *out = static_cast<pam_response *>(std::calloc(size_t(count), sizeof(pam_response)));
    if (!out)
        return PAM_BUF_ERR;
    for (int i = 0; i < count; ++i) {
        if (messages[i]->msg_style == PAM_PROMPT_ECHO_OFF)
            out[i].resp = strdup(secret->bytes.constData());
    }
    *responses = out;
    return PAM_SUCCESS;
}

// pam_unix waits on purpose after a wrong password, so this runs off the main thread.
int check(const QByteArray &account, Secret *secret)
{
    pam_conv conversation{converse, secret};
    pam_handle_t *handle = nullptr;
    int result = pam_start(PamOwnerAuth::service, account.constData(), &conversation, &handle);
    if (result == PAM_SUCCESS)
        result = pam_authenticate(handle, PAM_SILENT);
    if (handle)
        pam_end(handle, result);
    return result;
}

} // namespace

PamOwnerAuth::PamOwnerAuth(Ask ask)
    : m_ask(std::move(ask))
{}

QString PamOwnerAuth::accountName()
{
    const passwd *entry = getpwuid(getuid());
    return entry ? QString::fromLocal8Bit(entry->pw_name) : QString();
}

QString PamOwnerAuth::unavailable() const
{
    if (accountName().isEmpty())
        return L::t(u"לא נמצא חשבון המשתמש במערכת."_s, u"This system account cannot be found."_s,
                    u"Учётная запись системы не найдена."_s);
    return {};
}

QCoro::Task<OwnerAuth::Outcome> PamOwnerAuth::evaluate(QString reason)
{
    const QByteArray account = accountName().toLocal8Bit();
    std::optional<QString> typed = co_await m_ask(reason);
    if (!typed) {
        co_return Outcome{false, L::t(u"בוטל."_s, u"Cancelled."_s, u"Отменено."_s)};
    }
    auto secret = std::make_shared<Secret>();
    secret->bytes = typed->toUtf8();
    typed->fill(u'\0');
    auto result = std::make_shared<int>(PAM_AUTH_ERR);
    std::unique_ptr<QThread> worker(
        QThread::create([account, secret, result] { *result = check(account, secret.get()); }));
    worker->start();
    co_await qCoro(worker.get()).waitForFinished();
    if (*result == PAM_SUCCESS)
        co_return Outcome{true, {}};
    if (*result == PAM_AUTH_ERR || *result == PAM_USER_UNKNOWN)
        co_return Outcome{false,
                          L::t(u"הסיסמה שגויה."_s, u"Wrong password."_s, u"Неверный пароль."_s)};
    co_return Outcome{false, QString::fromLocal8Bit(pam_strerror(nullptr, *result))};
}
