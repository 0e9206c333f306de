// KyMessageBox: icon drawing, text wrapping, button placement and the default button.
#include "gui/widgets/KyMessageBox.h"

#include <algorithm>

#include "gui/platform/KyPainter.h"
#include "gui/platform/KyPlatformWindow.h"
#include "gui/widgets/KyLabel.h"
#include "gui/widgets/KyPushButton.h"

namespace {

constexpr int kWidth = 460;
constexpr int kIconSize = 40;
constexpr int kTextX = 54;
constexpr int kInnerX = 16;
constexpr int kInnerY = 14;
constexpr int kTextHeight = 24;
constexpr int kLineHeight = 19;
constexpr int kButtonY = 4;
constexpr int kButtonHeight = 34;
constexpr int kButtonMinWidth = 88;
constexpr int kButtonGap = 8;
constexpr int kKeyReturn = 0xFF0D, kKeyEnter = 0xFF8D;

const char* kPrimarySheet = "KyPushButton { background-color: rgb(59, 130, 246); color: rgb(255, 255, 255); "
                            "border-radius: 8px; border-width: 0px; font-size: 13px; font-weight: 600; }"
                            "KyPushButton:hover { background-color: rgb(37, 99, 235); border-width: 0px; }"
                            "KyPushButton:pressed { background-color: rgb(29, 78, 216); color: rgb(255, 255, 255); border-width: 0px; }"
                            "KyPushButton:focus { border-color: rgb(147, 197, 253); border-width: 2px; }";
const char* kSecondarySheet = "KyPushButton { background-color: rgb(241, 245, 249); color: rgb(51, 65, 85); "
                              "border-radius: 8px; border-color: rgb(203, 213, 225); border-width: 1px; font-size: 13px; }"
                              "KyPushButton:hover { background-color: rgb(226, 232, 240); border-color: rgb(148, 163, 184); }"
                              "KyPushButton:pressed { background-color: rgb(203, 213, 225); color: rgb(30, 41, 59); }"
                              "KyPushButton:focus { border-color: rgb(59, 130, 246); }";

constexpr KyColor kInfo{59, 130, 246};
constexpr KyColor kWarn{245, 158, 11};
constexpr KyColor kCrit{220, 38, 38};
constexpr KyColor kWhite{255, 255, 255};

} // namespace

// ---------------------------------------------------------------------------
// IconWidget

KyMessageBox::IconWidget::IconWidget(KyWidget* parent) : KyWidget(parent) {
    setObjectName("IconWidget");
    setFocusPolicy(NoClickFocus);
    setDefaultStyleSheet("IconWidget { background-color: rgba(0,0,0,0); border-width: 0px; }");
}

void KyMessageBox::IconWidget::setKind(int kind) {
    kind_ = kind;
    update();
}

void KyMessageBox::IconWidget::paintEvent(PaintEvent* event) {
    if (!event || !event->painter()) return;
    const int side = std::min(width(), height());
    const KyRect r{(width() - side) / 2, (height() - side) / 2, side, side};
    switch (kind_) {
    case Information: paintInformation(event->painter(), r); break;
    case Warning: paintWarning(event->painter(), r); break;
    case Critical: paintCritical(event->painter(), r); break;
    default: break;
    }
}

void KyMessageBox::IconWidget::paintInformation(KyPainter* p, const KyRect& r) {
    p->fillEllipse(r, kInfo, kInfo, 0);
    const int cx = r.x + r.width / 2;
    const int u = std::max(1, r.width / 10); // 4 px at 40
    // The dot, then the stem with a small serif at its top left and a foot.
    p->fillEllipse({cx - u / 2 - 1, r.y + 2 * u, u + 3, u + 3}, kWhite, kWhite, 0);
    const KyPoint stem[] = {{cx - u - u / 2, r.y + 4 * u + 1}, {cx + u / 2 + 1, r.y + 4 * u + 1},
                            {cx + u / 2 + 1, r.y + 7 * u + 1}, {cx + u + u / 2, r.y + 7 * u + 1},
                            {cx + u + u / 2, r.y + 8 * u + 1}, {cx - u - u / 2, r.y + 8 * u + 1},
                            {cx - u - u / 2, r.y + 7 * u + 1}, {cx - u / 2, r.y + 7 * u + 1},
                            {cx - u / 2, r.y + 5 * u + 1},     {cx - u - u / 2, r.y + 5 * u + 1}};
    p->fillPolygon(stem, 10, kWhite, kWhite, 0);
}

void KyMessageBox::IconWidget::paintWarning(KyPainter* p, const KyRect& r) {
    const int u = std::max(1, r.width / 10);
    // A triangle with its corners cut, which reads as rounded at this size.
    const KyPoint tri[] = {{r.x + r.width / 2 - u / 2, r.y + 1},      {r.x + r.width / 2 + u / 2, r.y + 1},
                           {r.x + r.width - 1, r.y + r.height - 5},   {r.x + r.width - 4, r.y + r.height - 2},
                           {r.x + 3, r.y + r.height - 2},             {r.x, r.y + r.height - 5}};
    p->fillPolygon(tri, 6, kWarn, kWarn, 0);
    const int cx = r.x + r.width / 2;
    // The exclamation mark: a tapering bar and a dot.
    const KyPoint bar[] = {{cx - u / 2 - 1, r.y + 3 * u + 1}, {cx + u / 2 + 1, r.y + 3 * u + 1},
                           {cx + u / 2, r.y + 6 * u + 3},     {cx - u / 2, r.y + 6 * u + 3}};
    p->fillPolygon(bar, 4, kWhite, kWhite, 0);
    p->fillEllipse({cx - u / 2 - 1, r.y + 7 * u + 1, u + 2, u + 2}, kWhite, kWhite, 0);
}

void KyMessageBox::IconWidget::paintCritical(KyPainter* p, const KyRect& r) {
    p->fillEllipse(r, kCrit, kCrit, 0);
    const int cx = r.x + r.width / 2, cy = r.y + r.height / 2;
    const int a = r.width * 3 / 10; // half the cross's span
    const int t = std::max(1, r.width / 14); // half the stroke's width
    // Two bars at right angles, each a rotated rectangle of four points.
    const KyPoint one[] = {{cx - a - t, cy - a + t}, {cx - a + t, cy - a - t}, {cx + a + t, cy + a - t}, {cx + a - t, cy + a + t}};
    const KyPoint two[] = {{cx + a - t, cy - a - t}, {cx + a + t, cy - a + t}, {cx - a + t, cy + a + t}, {cx - a - t, cy + a - t}};
    p->fillPolygon(one, 4, kWhite, kWhite, 0);
    p->fillPolygon(two, 4, kWhite, kWhite, 0);
}

// ---------------------------------------------------------------------------
// KyMessageBox

KyMessageBox::KyMessageBox(KyWidget* parent) : KyDialog(parent) {
    setDefaultStyleSheet("KyMessageBox { background-color: rgb(255, 255, 255); border-color: rgb(220, 224, 232); "
                         "border-width: 1px; border-radius: 16px; }");
    titleBar()->setStyleSheet("KyLabel { background-color: rgba(0,0,0,0); border-width: 0px; color: rgb(24, 28, 36); "
                              "font-size: 16px; font-weight: 600; }");
    frame_ = contentWidget();
    frame_->setDefaultStyleSheet("#DialogContent { background-color: rgb(255, 255, 255); "
                                 "border-color: rgb(220, 224, 232); border-width: 1px; border-radius: 12px; }");
    iconWidget_ = new IconWidget(frame_);
    iconWidget_->hide();
    textLabel_ = new KyLabel(frame_);
    textLabel_->setObjectName("MessageText");
    textLabel_->setStyleSheet("KyLabel { background-color: rgba(0,0,0,0); border-width: 0px; color: rgb(24, 28, 36); "
                              "font-size: 14px; font-weight: 600; }");
}

void KyMessageBox::setIcon(int kind) {
    iconKind_ = kind >= Information && kind <= Critical ? kind : NoIcon;
    iconWidget_->setKind(iconKind_);
    iconWidget_->setVisible(iconKind_ != NoIcon);
    updateContentLayout();
}

void KyMessageBox::setText(const KyString& text) {
    text_ = text;
    textLabel_->setText(text);
    updateContentLayout();
}

void KyMessageBox::setInformativeText(const KyString& text) {
    informative_ = text;
    updateContentLayout();
}

KyPushButton* KyMessageBox::addButton(const KyString& text, int code, bool primary) {
    auto* button = new KyPushButton(text, buttonBar());
    button->setStyleSheet(primary ? kPrimarySheet : kSecondarySheet);
    buttons_.push_back(button);
    codes_.push_back(code);
    primary_.push_back(primary);
    KyObject::connect(button, &KyPushButton::clicked, this, [this, code] { done(code); });
    layoutButtons();
    return button;
}

KyPushButton* KyMessageBox::defaultButton() const {
    for (int i = static_cast<int>(buttons_.size()) - 1; i >= 0; --i)
        if (primary_[i]) return buttons_[i];
    return buttons_.isEmpty() ? nullptr : buttons_.last();
}

void KyMessageBox::createButtons() {
    if (buttons_.isEmpty()) addButton("Cancel", 0, false);
}

KyVector<KyString> KyMessageBox::wrapInformative_(int width) const {
    KyVector<KyString> lines;
    if (informative_.isEmpty()) return lines;
    KyFont font = resolveStyledFont();
    font.pixelSize = 13;
    auto fits = [&](const KyString& s) {
        return KyWidgetPlatformAdapter::textWidthUntil(nativeHandle(), s, font, s.size(), 7 * static_cast<int>(s.size())) <= width;
    };
    for (const KyString& paragraph : informative_.split('\n')) {
        KyString line;
        for (const KyString& word : paragraph.split(' ', true)) {
            const KyString candidate = line.isEmpty() ? word : line + " " + word;
            if (line.isEmpty() || fits(candidate)) line = candidate;
            else {
                lines.push_back(line);
                line = word;
            }
        }
        lines.push_back(line);
    }
    return lines;
}

void KyMessageBox::updateContentLayout() {
    const int innerW = kWidth - 2 * 18 - 2 * kInnerX;
    const int textX = kInnerX + (iconKind_ != NoIcon ? kTextX : 0);
    const int textW = innerW - (textX - kInnerX);
    iconWidget_->setGeometry(kInnerX, kInnerY, kIconSize, kIconSize);
    textLabel_->setGeometry(textX, kInnerY + (text_.isEmpty() ? 0 : 0), textW, kTextHeight);
    const KyVector<KyString> lines = wrapInformative_(textW);
    while (informativeLines_.size() > lines.size()) delete informativeLines_.takeLast();
    while (informativeLines_.size() < lines.size()) {
        auto* label = new KyLabel(frame_);
        label->setObjectName("InformativeText");
        label->setStyleSheet("KyLabel { background-color: rgba(0,0,0,0); border-width: 0px; "
                             "color: rgb(71, 85, 105); font-size: 13px; }");
        informativeLines_.push_back(label);
    }
    const int infoY = kInnerY + kTextHeight + 4;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        informativeLines_[i]->setText(lines[i]);
        informativeLines_[i]->setGeometry(textX, infoY + static_cast<int>(i) * kLineHeight, textW, kLineHeight);
    }
    int textBottom = kTextHeight + (lines.isEmpty() ? 0 : 4 + static_cast<int>(lines.size()) * kLineHeight);
    const int contentH = std::max(iconKind_ != NoIcon ? kIconSize : 0, textBottom) + 2 * kInnerY;
    const int titleH = titleBar()->isVisible() ? 54 : 18;
    setDialogSize(kWidth, titleH + contentH + 10 + 46 + 10);
}

void KyMessageBox::layoutButtons() {
    KyWidget* bar = buttonBar();
    int right = bar->width();
    for (int i = static_cast<int>(buttons_.size()) - 1; i >= 0; --i) {
        KyPushButton* b = buttons_[i];
        const int w = std::max(kButtonMinWidth, b->sizeHint().width);
        right -= w;
        b->setGeometry(right, kButtonY + 6, w, kButtonHeight);
        right -= kButtonGap;
    }
}

void KyMessageBox::updateLayout() {
    KyDialog::updateLayout();
    layoutButtons();
}

void KyMessageBox::prepareForExec_() {
    createButtons();
    // Measured with the real fonts of the window the box opens in.
    if (isNative()) openNativePlatformWindow_();
    else ensureOverlay();
    updateContentLayout();
    updateLayout();
}

KyWidget* KyMessageBox::initialFocusWidget_() {
    KyPushButton* b = defaultButton();
    return b ? static_cast<KyWidget*>(b) : this;
}

void KyMessageBox::keyPressEvent(KeyEvent* event) {
    if ((event->keyCode() == kKeyReturn || event->keyCode() == kKeyEnter) && isModal()) {
        if (KyPushButton* b = defaultButton()) {
            event->accept();
            const int index = buttons_.indexOf(b);
            done(codes_[index]);
            return;
        }
    }
    KyDialog::keyPressEvent(event);
}

namespace {
int runBox(KyWidget* parent, int icon, const KyString& title, const KyString& text, const KyString& informative) {
    KyMessageBox box(parent);
    box.setIcon(icon);
    box.setWindowTitle(title);
    box.setText(text);
    box.setInformativeText(informative);
    box.addButton("OK", 1, true);
    return box.exec();
}
} // namespace

int KyMessageBox::information(KyWidget* parent, const KyString& title, const KyString& text, const KyString& informative) {
    return runBox(parent, Information, title, text, informative);
}
int KyMessageBox::warning(KyWidget* parent, const KyString& title, const KyString& text, const KyString& informative) {
    return runBox(parent, Warning, title, text, informative);
}
int KyMessageBox::critical(KyWidget* parent, const KyString& title, const KyString& text, const KyString& informative) {
    return runBox(parent, Critical, title, text, informative);
}
