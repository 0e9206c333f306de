// KyTextCharFormat: how a run of characters is drawn, as far as a highlighter
// or an editor chooses: foreground and background colour, font weight,
// italic and underline.
//
// Each property is either set or left to the widget's own look; merge() lays
// one format over another, set properties winning. KyTextFormatRange places a
// format on a run of bytes of one block. Plain values; no locking.
#pragma once

#include <cstdint>

#include "core/types/KyColor.h"

/// Character properties, each set or unset.
class KyTextCharFormat {
public:
    static constexpr int kNormalWeight = 400;
    static constexpr int kBoldWeight = 700;

    KyTextCharFormat() = default;

    bool hasForeground() const { return set_ & kForeground; }
    KyColor foreground() const { return foreground_; }
    void setForeground(const KyColor& color) { foreground_ = color, set_ |= kForeground; }
    void clearForeground() { foreground_ = KyColor(), set_ &= ~kForeground; }

    bool hasBackground() const { return set_ & kBackground; }
    KyColor background() const { return background_; }
    void setBackground(const KyColor& color) { background_ = color, set_ |= kBackground; }
    void clearBackground() { background_ = KyColor(), set_ &= ~kBackground; }

    /// The weight as a font takes it (400 normal, 600 and more bold); 400 when unset.
    bool hasFontWeight() const { return set_ & kWeight; }
    int fontWeight() const { return weight_; }
    void setFontWeight(int weight) { weight_ = weight, set_ |= kWeight; }
    void clearFontWeight() { weight_ = kNormalWeight, set_ &= ~kWeight; }

    bool hasFontItalic() const { return set_ & kItalic; }
    bool fontItalic() const { return italic_; }
    void setFontItalic(bool italic) { italic_ = italic, set_ |= kItalic; }
    void clearFontItalic() { italic_ = false, set_ &= ~kItalic; }

    bool hasFontUnderline() const { return set_ & kUnderline; }
    bool fontUnderline() const { return underline_; }
    void setFontUnderline(bool underline) { underline_ = underline, set_ |= kUnderline; }
    void clearFontUnderline() { underline_ = false, set_ &= ~kUnderline; }

    /// True when no property is set.
    bool isEmpty() const { return set_ == 0; }
    /// Takes every property that other sets.
    void merge(const KyTextCharFormat& other);

    friend bool operator==(const KyTextCharFormat&, const KyTextCharFormat&) = default;

private:
    enum : std::uint8_t { kForeground = 1, kBackground = 2, kWeight = 4, kItalic = 8, kUnderline = 16 };

    KyColor foreground_;
    KyColor background_;
    int weight_ = kNormalWeight;
    bool italic_ = false;
    bool underline_ = false;
    std::uint8_t set_ = 0;
};

/// A format over bytes start..start+length-1 of one block.
struct KyTextFormatRange {
    int start = 0;
    int length = 0;
    KyTextCharFormat format;
    int end() const { return start + length; }
    friend bool operator==(const KyTextFormatRange&, const KyTextFormatRange&) = default;
};
