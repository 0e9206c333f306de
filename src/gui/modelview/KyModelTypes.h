// The shared vocabulary of the item models: data roles, item flags, header
// orientation, sort order, and the value order and case folding that sorting
// and filtering use.
//
// Roles below 101 are the framework's own; a model's custom roles (the
// console's list and table models) start at KyItemDataRole::User, 101.
// Everything here is plain values and pure functions: any thread may call them.
#pragma once

#include <string>
#include <string_view>

#include "core/types/KyAny.h"
#include "core/types/KyFlagSet.h"

/// Roles under which an item answers data(). Check-state values are the
/// check box's: 0 unchecked, 1 partially checked, 2 checked.
struct KyItemDataRole {
    enum : int {
        Display = 0,       ///< the text shown (KyString)
        Decoration = 1,    ///< an icon or glyph
        Edit = 2,          ///< the value an editor starts from and writes back
        ToolTip = 3,       ///< KyString
        StatusTip = 4,     ///< KyString
        Font = 6,          ///< a font for the cell
        TextAlignment = 7, ///< painter text-format bits (int)
        Background = 8,    ///< KyColor
        Foreground = 9,    ///< KyColor
        CheckState = 10,   ///< int 0, 1 or 2
        SizeHint = 13,     ///< a size for the cell
        User = 101,        ///< first role free for a model's own values
    };
};

/// What a user may do with an item.
enum class KyItemFlag : unsigned {
    NoFlags = 0,
    Selectable = 1,
    Editable = 2,
    Enabled = 4,
    UserCheckable = 8,
    NeverHasChildren = 16,
};
KY_DECLARE_FLAG_OPERATORS(KyItemFlag)
using KyItemFlags = KyFlagSet<KyItemFlag>;

/// Which header a section belongs to: columns run along the horizontal one.
/// Numbered as the scroll bar numbers its orientation.
enum class KyOrientation : int { Horizontal = 0, Vertical = 1 };

enum class KySortOrder : int { Ascending = 0, Descending = 1 };

/// An item value made ready for ordering, so a sort reads and folds each
/// value once instead of at every comparison.
struct KyItemSortKey {
    enum Kind : unsigned char { Empty, Number, Text };
    Kind kind = Empty;
    double number = 0;
    std::string folded; ///< text in lower case (kyFoldCase)
    std::string text;   ///< the text as it is, for ties
};
KyItemSortKey kyItemSortKey(const KyAny& value);
/// The order of kyCompareItemData on prepared keys.
int kyCompareSortKeys(const KyItemSortKey& a, const KyItemSortKey& b);

/// Orders two item values as sorting does: an empty value first; two numbers
/// (bool, integers, floating) by value; anything else by its text, folded to
/// lower case, with the plain bytes breaking ties. Returns <0, 0 or >0.
int kyCompareItemData(const KyAny& a, const KyAny& b);

/// text with upper-case letters of the Latin (ASCII, Latin-1 and Latin
/// Extended-A), Greek and Cyrillic alphabets lowered; other bytes unchanged,
/// invalid UTF-8 kept byte for byte.
std::string kyFoldCase(std::string_view text);

/// Whether text contains foldedNeedle (already passed through kyFoldCase),
/// comparing case-insensitively. scratch is reused between calls to spare an
/// allocation per row.
bool kyContainsFolded(std::string_view text, std::string_view foldedNeedle, std::string& scratch);
