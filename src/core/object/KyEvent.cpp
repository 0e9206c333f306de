// KyEvent and the object events: out-of-line virtuals, so each class has one
// home for its vtable.
#include "core/object/KyEvent.h"

KyEvent::~KyEvent() = default;

KyEvent* KyEvent::clone() const { return new KyEvent(*this); }

KyEvent* KyDeferredDeleteEvent::clone() const { return new KyDeferredDeleteEvent(*this); }

KyEvent* KyChildEvent::clone() const { return new KyChildEvent(*this); }
