// ISlotBase: the one out-of-line member of the slot classes, so the base's
// vtable has a single home.
#include "core/object/KySlot.h"

ISlotBase::~ISlotBase() = default;
