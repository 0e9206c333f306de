// KyTabWidget: pages stacked under a tab bar; the current tab's page shows.
//
// The widget owns its pages (they become its children) and lays the current
// one out in the area under the bar, inside the widget's padding. Clicking a
// tab, Ctrl+Tab and Ctrl+Shift+Tab (from anywhere inside the widget), and
// Left and Right on the focused bar switch pages. A page that is deleted
// leaves with its tab. GUI thread only.
#pragma once

#include "core/types/KyVector.h"
#include "gui/widgets/KyWidget.h"

class KyTabBar;

/// A stack of pages chosen by tabs.
class KyTabWidget : public KyWidget {
    KY_OBJECT(KyTabWidget, KyWidget)

public:
    explicit KyTabWidget(KyWidget* parent = nullptr);

    /// Adds page (taking it as a child) under a tab titled text; returns its index.
    int addTab(KyWidget* page, const KyString& text);
    int insertTab(int index, KyWidget* page, const KyString& text);
    /// Removes the tab and hands the page back without its parent (the caller owns it).
    void removeTab(int index);
    int count() const { return static_cast<int>(pages_.size()); }
    int currentIndex() const;
    void setCurrentIndex(int index);
    KyWidget* currentWidget() const { return widget(currentIndex()); }
    KyWidget* widget(int index) const;
    int indexOf(const KyWidget* page) const;
    KyString tabText(int index) const;
    void setTabText(int index, const KyString& text);
    KyTabBar* tabBar() const { return bar_; }
    /// The area pages are laid out in.
    KyRect pageRect() const;

    KY_SIGNAL(currentChanged, int)

    void removeChild(KyObject* child) override;
    KySize sizeHint() const override;
    KySize minimumSizeHint() const override;
    void resizeEvent(ResizeEvent* event) override;
    void keyPressEvent(KeyEvent* event) override;
    void paintEvent(PaintEvent* event) override;

private:
    void showCurrent_(int index);
    void layoutPages_();

    KyTabBar* bar_ = nullptr;
    KyVector<KyWidget*> pages_;
    bool removing_ = false;
};
