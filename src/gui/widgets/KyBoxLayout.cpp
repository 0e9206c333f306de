// The box layout's two algorithms: its size hints and placing its entries.
#include "gui/widgets/KyBoxLayout.h"

#include <algorithm>

#include "gui/widgets/KyLayoutDetail.h"
#include "gui/widgets/KyWidget.h"

using namespace KyLayoutDetail;

namespace {

int along(KySize s, bool vertical) { return vertical ? s.height : s.width; }

}  // namespace

KyBoxLayout::~KyBoxLayout() = default;

void KyBoxLayout::changed_() {
    invalidate();
    updateGeometry();
}

void KyBoxLayout::insertWidget(int index, KyWidget* widget, int stretch, int fixedLength) {
    if (!widget) return;
    for (const Entry_& e : entries_)
        if (e.item && e.item->widget() == widget) return;
    if (parentWidget() && widget->parentWidget() != parentWidget()) widget->setParent(parentWidget());
    insertItem(index, new KyWidgetItem(widget), stretch, fixedLength);
}

void KyBoxLayout::insertItem(int index, KyLayoutItem* item, int stretch, int fixedLength) {
    if (!item) return;
    if (index < 0 || index > count()) index = count();
    entries_.insert(entries_.begin() + index, Entry_{std::unique_ptr<KyLayoutItem>(item), stretch, fixedLength});
    changed_();
}

void KyBoxLayout::addStretch(int stretch) {
    const bool vertical = orientation_ == Vertical;
    insertItem(-1,
               new KySpacerItem(0, 0, vertical ? KySizePolicy::Minimum : KySizePolicy::Expanding,
                                vertical ? KySizePolicy::Expanding : KySizePolicy::Minimum),
               stretch);
}

void KyBoxLayout::addSpacing(int length) {
    const bool vertical = orientation_ == Vertical;
    insertItem(-1, new KySpacerItem(vertical ? 0 : length, vertical ? length : 0, KySizePolicy::Fixed,
                                    KySizePolicy::Fixed));
}

bool KyBoxLayout::removeWidget(KyWidget* widget) {
    for (auto it = entries_.begin(); it != entries_.end(); ++it) {
        if (it->item && it->item->widget() == widget) {
            // A widget deleted by a sibling's resize handler while this layout
            // places: the entry stays, empty, until the pass is over.
            if (applying_) {
                it->item.reset();
                return true;
            }
            entries_.erase(it);
            changed_();
            return true;
        }
    }
    return false;
}

KyLayoutItem* KyBoxLayout::itemAt(int index) const {
    return index >= 0 && index < count() ? entries_[size_t(index)].item.get() : nullptr;
}

int KyBoxLayout::stretchAt(int index) const { return index >= 0 && index < count() ? entries_[size_t(index)].stretch : 0; }

void KyBoxLayout::setStretch(int index, int stretch) {
    if (index < 0 || index >= count() || entries_[size_t(index)].stretch == stretch) return;
    entries_[size_t(index)].stretch = stretch;
    changed_();
}

void KyBoxLayout::compact_() {
    const size_t before = entries_.size();
    std::erase_if(entries_, [](const Entry_& e) { return !e.item; });
    if (entries_.size() != before) changed_();
}

void KyBoxLayout::forEachManagedWidget(const std::function<void(KyWidget*)>& fn) const {
    for (const Entry_& e : entries_)
        if (e.item)
            if (auto* w = dynamic_cast<KyWidget*>(e.item->widget())) fn(w);
}

KySize KyBoxLayout::layoutSizeHint_(bool minimumOnly) const {
    const int marginsW = marginLeft() + marginRight();
    const int marginsH = marginTop() + marginBottom();
    if (entries_.empty()) return {marginsW, marginsH};
    const bool vertical = orientation_ == Vertical;
    long long main = 0;
    int cross = 0;
    for (const Entry_& e : entries_) {
        if (!e.item) continue;
        // Hidden items count too: a form keeps its size when a row hides.
        const KySize minimum = e.item->minimumSize();
        const KySize hint = minimumOnly ? minimum : e.item->sizeHint().expandedTo(minimum);
        main += e.fixedLength > 0 ? e.fixedLength : std::max(0, along(hint, vertical));
        cross = std::max(cross, along(hint, !vertical));
    }
    if (entries_.size() >= 2) main += (long long)spacing() * (long long)(entries_.size() - 1);
    const int mainLength = int(std::min<long long>(main, kyLayoutMaximumLength));
    return vertical ? KySize{cross + marginsW, mainLength + marginsH} : KySize{mainLength + marginsW, cross + marginsH};
}

void KyBoxLayout::applyBoxLayout_(const KyRect& rect) {
    if (entries_.empty()) return;
    const bool vertical = orientation_ == Vertical;
    const int n = count();
    const int available = std::max(0, along(rect.size(), vertical) - spacing() * (n - 1));

    struct Track {
        int minimum = 0, preferred = 0, size = 0;
    };
    std::vector<Track> t(static_cast<size_t>(n));
    long long totalMinimum = 0, totalPreferred = 0, totalStretch = 0;
    for (int i = 0; i < n; ++i) {
        const Entry_& e = entries_[size_t(i)];
        Track& k = t[size_t(i)];
        if (e.item) {
            k.minimum = e.fixedLength > 0 ? e.fixedLength : std::max(0, along(e.item->minimumSize(), vertical));
            k.preferred = e.fixedLength > 0 ? e.fixedLength : std::max(0, along(e.item->sizeHint(), vertical));
            k.preferred = std::max(k.preferred, k.minimum);
        }
        k.size = k.preferred;
        totalMinimum += k.minimum;
        totalPreferred += k.preferred;
        totalStretch += std::max(0, e.stretch);
    }

    if (totalMinimum > available) {
        for (Track& k : t) k.size = k.minimum;
    } else if (totalPreferred > available) {
        // Shrink in proportion to how far each entry can give; the last one
        // with slack absorbs what truncation leaves.
        long long excess = totalPreferred - available;
        long long remainingSlack = totalPreferred - totalMinimum;
        for (Track& k : t) {
            const long long slack = k.preferred - k.minimum;
            if (slack <= 0 || remainingSlack <= 0) continue;
            const long long take = slack >= remainingSlack ? excess : slack * excess / remainingSlack;
            k.size = int(std::max<long long>(k.minimum, k.size - take));
            excess -= take;
            remainingSlack -= slack;
        }
    }

    long long used = 0;
    for (const Track& k : t) used += k.size;
    long long free = std::max<long long>(0, available - used);

    if (free > 0 && totalStretch > 0) {
        // Stretch adds to the preferred size; the last stretched entry takes the rest.
        long long remainingStretch = totalStretch;
        for (int i = 0; i < n && remainingStretch > 0; ++i) {
            const int stretch = entries_[size_t(i)].stretch;
            if (stretch < 1) continue;
            const long long give = stretch >= remainingStretch ? free : free * stretch / remainingStretch;
            t[size_t(i)].size += int(give);
            free -= give;
            remainingStretch -= stretch;
        }
    } else if (free > 0) {
        // Who receives the room: the first pass that finds anyone wins.
        const int axis = vertical ? VerticalAxis : HorizontalAxis;
        const struct {
            bool spacers;
            int bit;
        } passes[] = {{true, KySizePolicy::Expand}, {false, KySizePolicy::Expand},
                      {true, KySizePolicy::Grow},   {false, KySizePolicy::Grow}};
        std::vector<int> receivers;
        for (const auto& pass : passes) {
            for (int i = 0; i < n; ++i) {
                KyLayoutItem* item = entries_[size_t(i)].item.get();
                if (!item || (item->spacerItem() != nullptr) != pass.spacers) continue;
                if (itemSizePolicy_(item, axis) & pass.bit) receivers.push_back(i);
            }
            if (!receivers.empty()) break;
        }
        if (!receivers.empty()) {
            const long long share = free / (long long)receivers.size();
            long long extra = free % (long long)receivers.size();
            for (int i : receivers) {
                t[size_t(i)].size += int(share + (extra > 0 ? 1 : 0));
                if (extra > 0) --extra;
            }
        }
    }

    const int crossAxis = vertical ? HorizontalAxis : VerticalAxis;
    const int crossStart = vertical ? rect.x : rect.y;
    const int crossAvailable = along(rect.size(), !vertical);
    int position = vertical ? rect.y : rect.x;
    applying_ = true;
    for (int i = 0; i < n; ++i) {
        KyLayoutItem* item = entries_[size_t(i)].item.get();
        if (!item) continue;
        int crossLength = 0, crossOffset = 0;
        fitAcross_(item, crossAxis, crossAvailable, crossLength, crossOffset);
        const int size = t[size_t(i)].size;
        if (vertical)
            item->setGeometry({crossStart + crossOffset, position, crossLength, size});
        else
            item->setGeometry({position, crossStart + crossOffset, size, crossLength});
        position += size + spacing();
    }
    applying_ = false;
    compact_();
}
