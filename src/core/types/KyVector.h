// KyVector: contiguous storage for framework tables (connection lists, slots).
//
// Same helpers as KyList; kept as its own name because tables that are indexed
// and resized in place read better as vectors. No locking of its own.
#pragma once

#include "core/types/KyList.h"

/// Contiguous array of values; a std::vector with list-style helpers.
template <typename T> class KyVector : public KyList<T> {
public:
    using KyList<T>::KyList;
    KyVector() = default;
    KyVector(const KyList<T>& other) : KyList<T>(other) {}
};
