// KySize: text form for logs and test failure messages.
#include "core/types/KySize.h"

#include <ostream>

std::ostream& operator<<(std::ostream& os, const KySize& s) { return os << "KySize(" << s.width << " x " << s.height << ")"; }
