// KyModelIndex: names one cell of an item model for as long as the model
// does not change.
//
// An index carries its row, column, the model's own internal id (or pointer)
// and the model. It is a plain value, valid only until the model inserts,
// removes, resets or reorders rows; code that must hold on to a cell across
// such changes keeps a KyPersistentModelIndex. Indexes belong to the model's
// thread, like the model.
#pragma once

#include <cstdint>
#include <functional>
#include <iosfwd>

#include "gui/modelview/KyModelTypes.h"

class KyAbstractItemModel;

/// One cell of a model; invalid by default.
class KyModelIndex {
public:
    constexpr KyModelIndex() noexcept = default;

    bool isValid() const noexcept { return row_ >= 0 && column_ >= 0 && model_ != nullptr; }
    int row() const noexcept { return row_; }
    int column() const noexcept { return column_; }
    std::uintptr_t internalId() const noexcept { return id_; }
    void* internalPointer() const noexcept { return reinterpret_cast<void*>(id_); }
    const KyAbstractItemModel* model() const noexcept { return model_; }

    // Shortcuts into the model; an invalid index answers empty values.
    KyModelIndex parent() const;
    KyModelIndex sibling(int row, int column) const;
    KyModelIndex siblingAtColumn(int column) const { return sibling(row_, column); }
    KyAny data(int role = KyItemDataRole::Display) const;
    KyItemFlags flags() const;

    friend bool operator==(const KyModelIndex&, const KyModelIndex&) = default;
    /// Row, then column, then internal id, then model address.
    friend bool operator<(const KyModelIndex& a, const KyModelIndex& b) noexcept;

private:
    friend class KyAbstractItemModel;
    constexpr KyModelIndex(int row, int column, std::uintptr_t id, const KyAbstractItemModel* model) noexcept
        : row_(row), column_(column), id_(id), model_(model) {}

    int row_ = -1;
    int column_ = -1;
    std::uintptr_t id_ = 0;
    const KyAbstractItemModel* model_ = nullptr;
};

/// Prints "KyModelIndex(row, column)" or "KyModelIndex()".
std::ostream& operator<<(std::ostream& os, const KyModelIndex& index);

template <> struct std::hash<KyModelIndex> {
    std::size_t operator()(const KyModelIndex& i) const noexcept {
        std::size_t h = std::hash<const void*>{}(i.model());
        h ^= std::hash<std::uintptr_t>{}(i.internalId()) + 0x9e3779b97f4a7c15ULL + (h << 6) + (h >> 2);
        h ^= (std::size_t(std::uint32_t(i.row())) << 32 | std::uint32_t(i.column())) + 0x9e3779b97f4a7c15ULL +
             (h << 6) + (h >> 2);
        return h;
    }
};
