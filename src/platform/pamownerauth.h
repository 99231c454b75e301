#pragma once

#include "ownerauth.h"

#include <functional>
#include <optional>

// The owner is whoever knows this operating-system account's password, checked through
// PAM the way screen lockers do it. The password is asked by `ask` (a dialog, a terminal
// prompt); nothing of it is kept.
class PamOwnerAuth : public OwnerAuth
{
public:
    // Gives the typed password, or nothing when the person cancelled.
    using Ask = std::function<QCoro::Task<std::optional<QString>>(QString reason)>;

    // "halvenmark": without a file of that name in /etc/pam.d PAM falls back to "other",
    // which on Debian is the system's common-auth, i.e. the account's own password.
    static constexpr const char *service = "halvenmark";

    explicit PamOwnerAuth(Ask ask);

    QString unavailable() const override;
    QCoro::Task<Outcome> evaluate(QString reason) override;

    // The account this process runs as.
    static QString accountName();

private:
    Ask m_ask;
};
