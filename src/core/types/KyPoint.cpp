// KyPoint: text form for logs and test failure messages.
#include "core/types/KyPoint.h"

#include <ostream>

std::ostream& operator<<(std::ostream& os, const KyPoint& p) { return os << "KyPoint(" << p.x << ", " << p.y << ")"; }
