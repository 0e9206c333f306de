// KyLoadingOverlay: covering the parent, the ring's timer and painting.
#include "gui/widgets/KyLoadingOverlay.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "core/runtime/KyTimer.h"
#include "gui/platform/KyGuiApplication.h"
#include "gui/platform/KyPainter.h"
#include "gui/platform/KyPlatformIntegration.h"
#include "gui/widgets/KyControlMetrics.h"
#include "gui/widgets/KyWidgetStyleSnapshot.h"

namespace {

const char* const kDefaultSheet =
    "KyLoadingOverlay { background-color: rgb(249, 249, 249); border-width: 0px; color: rgb(18, 18, 18);"
    " font-size: 15px; status-color: rgb(110, 110, 110); track-color: rgb(225, 229, 236);"
    " arc-color: rgb(0, 120, 215); arc-tail-color: rgb(196, 221, 243); spinner-size: 44px; spinner-width: 4px; }";

// About 30 steps a second, 12 degrees each: one turn in 1.2 s.
constexpr int kStepMs = 33;
constexpr int kStepDegrees = 12;
constexpr int kArcDegrees = 270;
constexpr int kArcSegments = 45;
constexpr int kTextGap = 14;

KyColor mix(const KyColor& a, const KyColor& b, int permille) {
    auto ch = [permille](int x, int y) { return x + (y - x) * permille / 1000; };
    return {ch(a.red(), b.red()), ch(a.green(), b.green()), ch(a.blue(), b.blue())};
}

} // namespace

KyLoadingOverlay::KyLoadingOverlay(KyWidget* parent) : KyWidget(parent) {
    setDefaultStyleSheet(kDefaultSheet);
    setFocusPolicy(StrongFocus);
    hide();
    // KyWidget joined the parent before this class existed: watch it now.
    watchParent_();
}

KyLoadingOverlay::~KyLoadingOverlay() {
    stopTimer_();
    if (KyObject::isLive(watched_)) watched_->removeEventFilter(this);
}

void KyLoadingOverlay::newParentEvent(KyObject* parent) {
    KyWidget::newParentEvent(parent);
    watchParent_();
}

void KyLoadingOverlay::watchParent_() {
    KyWidget* p = parentWidget();
    if (p == watched_) return;
    if (KyObject::isLive(watched_)) watched_->removeEventFilter(this);
    watched_ = p;
    if (watched_) {
        watched_->installEventFilter(this);
        coverParent_();
    }
}

bool KyLoadingOverlay::eventFilter(KyObject* watched, KyEvent* event) {
    if (watched == watched_ && event && event->type() == Event::Resize) coverParent_();
    return false;
}

void KyLoadingOverlay::coverParent_() {
    if (KyWidget* p = parentWidget()) setGeometry(p->clientRect());
}

void KyLoadingOverlay::raise_() {
    // Later children paint on top and are hit first: rejoining the parent
    // makes the overlay its last child.
    KyWidget* p = parentWidget();
    if (!p || p->childWidgets().isEmpty() || p->childWidgets().last() == this) return;
    setParent(nullptr);
    setParent(p);
}

void KyLoadingOverlay::setActive(bool active) {
    if (active == active_) return;
    active_ = active;
    if (active) {
        raise_();
        coverParent_();
        show();
        // Keys must not reach the controls under the cover.
        if (KyWidget* p = parentWidget()) {
            KyWidget* focus = focusWidget();
            if (focus && (p == focus || p->isAncestorOf(focus))) requestFocus();
        }
    } else {
        hide();
    }
    activeChanged(active);
}

void KyLoadingOverlay::setTitle(const KyString& title) {
    if (title == title_) return;
    title_ = title;
    update();
}

void KyLoadingOverlay::setStatusText(const KyString& text) {
    if (text == status_) return;
    status_ = text;
    update();
}

bool KyLoadingOverlay::isAnimating() const { return timer_ && timer_->isActive(); }

void KyLoadingOverlay::showEvent(Event* event) {
    KyWidget::showEvent(event);
    if (active_) startTimer_();
}

void KyLoadingOverlay::hideEvent(Event* event) {
    KyWidget::hideEvent(event);
    stopTimer_();
}

void KyLoadingOverlay::startTimer_() {
    if (timer_) return;
    timer_ = new KyTimer(this);
    timer_->connectTimeout([this] { step_(); });
    timer_->start(kStepMs);
}

void KyLoadingOverlay::stopTimer_() {
    if (!timer_) return;
    timer_->stop();
    delete timer_;
    timer_ = nullptr;
}

void KyLoadingOverlay::step_() {
    phase_ = (phase_ + kStepDegrees) % 360;
    if (!isVisibleInHierarchy()) return;
    // Only the ring moves: repaint its square, not the whole cover.
    KyRect r = spinnerRect_();
    r = {rootRect().x + r.x - 2, rootRect().y + r.y - 2, r.width + 4, r.height + 4};
    KyWidgetPlatformAdapter::invalidateRect(nativeHandle(), r);
    if (KyGuiApplication* app = KyGuiApplication::instance())
        if (KyPlatformIntegration* platform = app->platformIntegration()) platform->wakeUpGuiThread();
}

int KyLoadingOverlay::sheetPixels_(const char* name, int fallback) const {
    const KyString v = styleProperty(name);
    return v.isEmpty() ? fallback : StyleSheet::parsePixelValue(v, fallback);
}

KyColor KyLoadingOverlay::sheetColor_(const char* name, const KyColor& fallback) const {
    KyColor c = fallback;
    const KyString v = styleProperty(name);
    if (!v.isEmpty()) StyleSheet::tryParseColor_(v, c);
    return c;
}

KyRect KyLoadingOverlay::spinnerRect_() const {
    const int d = std::clamp(sheetPixels_("spinner-size", 44), 8, std::max(8, std::min(width(), height())));
    const KyFont font = resolveStyledFont();
    const int line = KyControlMetrics::lineHeight(font);
    // Ring, title and status stand as one block centred in the cover.
    const int block = d + (title_.isEmpty() ? 0 : kTextGap + line) + (status_.isEmpty() ? 0 : 6 + line);
    return {(width() - d) / 2, std::max(0, (height() - block) / 2), d, d};
}

void KyLoadingOverlay::keyPressEvent(KeyEvent*) {
    // Everything is taken while busy, Tab included: the focus stays on the cover.
}

void KyLoadingOverlay::paintEvent(PaintEvent* event) {
    if (!event || !event->painter() || !isVisibleInHierarchy()) return;
    KyPainter* p = event->painter();
    const ResolvedStyleSnapshot_& s = styleSnapshot_();
    const KyColor cover = s.hasBackground ? s.background : KyColor(249, 249, 249);
    if (!s.hasBackground || s.paintBackground) p->fillRect(clientRect(), cover, cover, 0);

    const KyRect ring = spinnerRect_();
    const int penWidth = std::clamp(sheetPixels_("spinner-width", 4), 1, ring.width / 4);
    const KyColor track = sheetColor_("track-color", KyColor(225, 229, 236));
    const KyColor arc = sheetColor_("arc-color", KyColor(0, 120, 215));
    const KyColor tail = sheetColor_("arc-tail-color", mix(track, arc, 300));
    const int inset = penWidth / 2;
    const KyRect path{ring.x + inset, ring.y + inset, ring.width - 2 * inset - 1, ring.height - 2 * inset - 1};
    p->drawEllipse(path, track, penWidth);

    // The arc runs 270 degrees behind its head, fading from the tail's tint to
    // the arc colour, drawn as short chords.
    constexpr double pi = std::numbers::pi;
    const double cx = path.x + path.width / 2.0, cy = path.y + path.height / 2.0;
    const double rx = path.width / 2.0, ry = path.height / 2.0;
    auto point = [&](double degrees) {
        const double a = degrees * pi / 180.0;
        return KyPoint(static_cast<int>(std::lround(cx + rx * std::cos(a))), static_cast<int>(std::lround(cy + ry * std::sin(a))));
    };
    const double head = phase_;
    KyPoint prev = point(head - kArcDegrees);
    for (int i = 1; i <= kArcSegments; ++i) {
        const KyPoint next = point(head - kArcDegrees + static_cast<double>(kArcDegrees) * i / kArcSegments);
        const KyColor c = mix(tail, arc, 1000 * i / kArcSegments);
        if (next != prev) p->drawLine(prev.x, prev.y, next.x, next.y, c, penWidth);
        prev = next;
    }

    const KyFont font = KyControlMetrics::pixelFont(resolveStyledFont());
    const int line = KyControlMetrics::lineHeight(font);
    int y = ring.y + ring.height + kTextGap;
    if (!title_.isEmpty()) {
        KyFont titleFont = font;
        titleFont.weight = 600;
        const KyColor text = s.hasTextColor ? s.textColor : KyColor(18, 18, 18);
        p->drawText({0, y, width(), line}, title_, DrawTextFormat::AlignHCenter | DrawTextFormat::AlignVCenter, text, titleFont);
        y += line + 6;
    }
    if (!status_.isEmpty()) {
        KyFont statusFont = font;
        statusFont.pixelSize = std::max(1, font.pixelSize - 2);
        p->drawText({0, y, width(), line}, status_, DrawTextFormat::AlignHCenter | DrawTextFormat::AlignVCenter,
                    sheetColor_("status-color", KyColor(110, 110, 110)), statusFont);
    }
}
