// KyStatusLight: three concentric discs, outer first.
#include "gui/widgets/KyStatusLight.h"

#include <algorithm>

#include "gui/platform/KyPainter.h"

KyStatusLight::KyStatusLight(KyWidget* parent) : KyWidget(parent) {
    setFocusPolicy(NoClickFocus);
    setDefaultStyleSheet("KyStatusLight { background-color: rgba(0,0,0,0); border-width: 0px; }");
}

void KyStatusLight::colorsForState(int state, KyColor& outer, KyColor& middle, KyColor& inner) {
    switch (state) {
    case 1: outer = {45, 78, 95}, middle = {74, 165, 132}, inner = {191, 214, 149}; break;
    case 3: outer = {101, 52, 52}, middle = {196, 93, 93}, inner = {167, 167, 233}; break;
    case 2: outer = {104, 43, 77}, middle = {214, 154, 88}, inner = {146, 203, 242}; break;
    default: outer = {38, 60, 52}, middle = {83, 99, 109}, inner = {178, 170, 157}; break;
    }
}

KySize KyStatusLight::sizeHint() const {
    const int d = std::max(0, getDiameter());
    return {d + 4, d + 4};
}

void KyStatusLight::paintEvent(PaintEvent* event) {
    if (!event || !event->painter() || !isVisibleInHierarchy()) return;
    KyPainter* p = event->painter();
    paintOwnBox_(p);
    const int d = std::min({std::max(0, getDiameter()), width(), height()});
    if (d <= 0) return;
    KyColor outer, middle, inner;
    colorsForState(getState(), outer, middle, inner);
    const KyRect disc{(width() - d) / 2, (height() - d) / 2, d, d};
    // The ring a sixth of the diameter wide, the core a third of it.
    const int ring = std::max(1, d / 6);
    const KyRect mid{disc.x + ring, disc.y + ring, d - 2 * ring, d - 2 * ring};
    const int core = std::max(1, d / 3);
    const KyRect in{disc.x + core, disc.y + core, d - 2 * core, d - 2 * core};
    p->fillEllipse(disc, outer, outer, 0);
    if (!mid.isEmpty()) p->fillEllipse(mid, middle, middle, 0);
    if (!in.isEmpty()) p->fillEllipse(in, inner, inner, 0);
}

void KyStatusLight::on_Diameter_changed(const int&) { update(); }
void KyStatusLight::on_State_changed(const int&) { update(); }
