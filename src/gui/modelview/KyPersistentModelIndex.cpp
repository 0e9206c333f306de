// KyPersistentModelIndex: entering and leaving the model's table.
#include "gui/modelview/KyPersistentModelIndex.h"

#include "gui/modelview/KyAbstractItemModel.h"

KyPersistentModelIndex::KyPersistentModelIndex(const KyModelIndex& index) { *this = index; }

KyPersistentModelIndex& KyPersistentModelIndex::operator=(const KyModelIndex& index) {
    d_.reset();
    if (!index.isValid()) return *this;
    auto* data = new ky::detail::PersistentIndexData{index, 0};
    // The last copy leaves the table; a model that is gone has already
    // cleared the entry's index, so there is nothing to leave.
    d_.reset(data, [](ky::detail::PersistentIndexData* p) {
        if (const KyAbstractItemModel* model = p->index.model()) model->unregisterPersistent_(p);
        delete p;
    });
    index.model()->registerPersistent_(data);
    return *this;
}
