// TypeId: the texts behind signature ids.
#include "ipc/TypeId.h"

#include "ipc/IpcNames.h"

namespace ky::ipc::detail {

KyString typeIdText(const KyString& argumentList) {
    return KyString("uint64_t ky::ipc::detail::type_id() [with Args = {") + argumentList +
           KyString("}; uint64_t = long unsigned int]");
}

KyString typeNameText(const KyString& argumentList) {
    return KyString("KyString ky::ipc::detail::type_name() [with Args = {") + argumentList + KyString("}]");
}

uint64_t typeIdFromArgList(const KyString& argumentList) { return frameworkHash(typeIdText(argumentList)); }

}  // namespace ky::ipc::detail
