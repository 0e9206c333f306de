// KyStyledItemDelegate: paints one row or cell of an item view from the
// model's roles, and makes the editor a view opens on a cell.
//
// A view hands the delegate a KyStyleOptionViewItem per cell: the rectangle,
// the state (selected, hovered, current, focused view) and the view's
// resolved colours and font, so a delegate never looks up a sheet per row.
// The base paints the row panel (selection accent, hover tint or the
// Background role), the Decoration role (a KyColor as a dot, a text as a
// glyph), then the Display text in the Foreground colour and Font role.
// Delegates are replaceable per view (the console's rows with an online dot
// and a switch derive from this one). GUI thread only.
#pragma once

#include "core/object/KyObject.h"
#include "core/types/KyColor.h"
#include "gui/modelview/KyAbstractItemModel.h"
#include "gui/platform/KyFont.h"
#include "core/types/KyRect.h"
#include "core/types/KySize.h"

class KyPainter;
class KyWidget;

/// What a view tells its delegate about one cell.
struct KyStyleOptionViewItem {
    enum State : unsigned {
        NoState = 0,
        Selected = 1,
        Hover = 2,
        Current = 4,
        Focus = 8, ///< the view has the keyboard focus
        Disabled = 16,
        FirstColumn = 32,
    };
    KyRect rect;
    unsigned state = NoState;
    KyFont font;
    KyColor text{30, 30, 30};
    KyColor selectedText{0, 120, 215};
    KyColor selectedBackground{229, 241, 251};
    KyColor hoverBackground{243, 246, 250};
    KyColor accent{0, 120, 215};
    int padding = 10; ///< left and right, inside the cell
    const KyWidget* widget = nullptr;
    bool has(State s) const { return (state & s) != 0; }
};

/// The default painter and editor factory of the item views.
class KyStyledItemDelegate : public KyObject {
    KY_OBJECT(KyStyledItemDelegate, KyObject)

public:
    explicit KyStyledItemDelegate(KyObject* parent = nullptr);

    virtual void paint(KyPainter* painter, const KyStyleOptionViewItem& option, const KyModelIndex& index) const;
    /// The SizeHint role when the model gives one, else the text's width and the option's height.
    virtual KySize sizeHint(const KyStyleOptionViewItem& option, const KyModelIndex& index) const;
    /// The text a value shows as (numbers in decimal, bools as "true"/"false").
    virtual KyString displayText(const KyAny& value) const;

    /// The widget a view opens to edit index, parented to parent; null: not
    /// editable through this delegate. The base gives a line edit on the cell.
    virtual KyWidget* createEditor(KyWidget* parent, const KyStyleOptionViewItem& option,
                                   const KyModelIndex& index) const;
    /// Puts the Edit role (else Display) into the editor's "Text" property.
    virtual void setEditorData(KyWidget* editor, const KyModelIndex& index) const;
    /// Writes the editor's "Text" property back as the Edit role.
    virtual void setModelData(KyWidget* editor, KyAbstractItemModel* model, const KyModelIndex& index) const;
    /// Places the editor on the cell.
    virtual void updateEditorGeometry(KyWidget* editor, const KyStyleOptionViewItem& option,
                                      const KyModelIndex& index) const;

    /// An editor asks its view to write it back, then to close it.
    KY_SIGNAL(commitData, KyWidget*)
    KY_SIGNAL(closeEditor, KyWidget*)

protected:
    /// The row panel: selection, hover or Background role, and the current-row mark.
    void paintPanel_(KyPainter* painter, const KyStyleOptionViewItem& option, const KyModelIndex& index) const;
};
