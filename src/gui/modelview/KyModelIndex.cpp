// KyModelIndex: the shortcuts that ask the index's model.
#include "gui/modelview/KyModelIndex.h"

#include <ostream>

#include "gui/modelview/KyAbstractItemModel.h"

KyModelIndex KyModelIndex::parent() const { return isValid() ? model_->parent(*this) : KyModelIndex(); }

KyModelIndex KyModelIndex::sibling(int row, int column) const {
    return isValid() ? model_->sibling(row, column, *this) : KyModelIndex();
}

KyAny KyModelIndex::data(int role) const { return isValid() ? model_->data(*this, role) : KyAny(); }

KyItemFlags KyModelIndex::flags() const { return isValid() ? model_->flags(*this) : KyItemFlags(); }

bool operator<(const KyModelIndex& a, const KyModelIndex& b) noexcept {
    if (a.row_ != b.row_) return a.row_ < b.row_;
    if (a.column_ != b.column_) return a.column_ < b.column_;
    if (a.id_ != b.id_) return a.id_ < b.id_;
    return std::less<const KyAbstractItemModel*>{}(a.model_, b.model_);
}

std::ostream& operator<<(std::ostream& os, const KyModelIndex& index) {
    if (!index.isValid()) return os << "KyModelIndex()";
    return os << "KyModelIndex(" << index.row() << ", " << index.column() << ")";
}
