// Login assistance on the login form: the remembered e-mails as suggestions
// under the e-mail field, kept in step with what is stored on disk.
//
// The history itself lives with the caller (the session's emailHistory); the
// completer only ever holds a copy of it as its list. GUI thread only.
#include "console/VelmoVpnConsoleLoginMemory.h"
#include "console/VelmoVpnConsoleUi.h"
#include "core/runtime/KyTimer.h"
#include "gui/widgets/KyCompleter.h"
#include "gui/widgets/KyLineEdit.h"

namespace {
// Long enough for a click in the popup to land before a lost focus closes it.
constexpr int kHideDelayMs = 120;
} // namespace

void velmoVpnConsoleRememberIdentity(const KyString& baseUrl, const KyString& email, KyString& rememberedBaseUrl,
                                     KyString& rememberedEmail, KyList<KyString>& history, KyCompleter* completer) {
    if (email.trimmed().isEmpty()) return;
    velmoVpnConsoleRememberLoginIdentity(baseUrl, email);
    rememberedBaseUrl = velmoVpnConsoleRememberedBaseUrl();
    rememberedEmail = velmoVpnConsoleRememberedEmail();
    history = velmoVpnConsoleRememberedEmailHistory();
    velmoVpnConsoleRefreshEmailCompleter(completer, history);
}

void velmoVpnConsoleRefreshEmailCompleter(KyCompleter* completer, const KyList<KyString>& history) {
    if (!completer) return;
    completer->setStringList(history);
}

void velmoVpnConsoleShowEmailSuggestions(KyCompleter* completer, KyLineEdit* field, const KyList<KyString>& history) {
    if (!completer || !field || history.isEmpty()) return;
    completer->setCompletionPrefix(field->getText().trimmed());
    completer->complete(KyRect(0, 0, field->width(), field->height()));
}

void velmoVpnConsoleWireEmailAssistance(VelmoVpnConsoleUi& ui, const KyList<KyString>& history) {
    KyLineEdit* email = ui.emailField;
    KyLineEdit* password = ui.passwordField;
    KyCompleter* completer = ui.emailCompleter;
    if (!email || !completer) return;
    const KyList<KyString>* live = &history;

    KyObject::connect(completer, &KyCompleter::activated, email, [email, password, completer](const KyString& text) {
        if (email->getText() != text) email->setText(text);
        if (password && KyObject::isLive(password)) password->requestFocus();
        completer->hidePopup();
    });
    KyObject::connect(email, &KyWidget::FocusChanged, completer, [email, completer, live](const bool& focused) {
        if (focused) {
            velmoVpnConsoleShowEmailSuggestions(completer, email, *live);
            return;
        }
        KyTimer::singleShot(kHideDelayMs, [completer] {
            if (KyObject::isLive(completer)) completer->hidePopup();
        });
    });
    // Text set by code while the field is not being edited (the remembered
    // address, a signed-in user) must not open a popup on its own.
    KyObject::connect(email, &KyLineEdit::TextChanged, completer, [email, completer, live](const KyString&) {
        if (email->hasFocus()) velmoVpnConsoleShowEmailSuggestions(completer, email, *live);
    });
}
