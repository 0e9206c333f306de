// kyipc: inspects and drives the IPC channels of this machine from the
// command line (see KyIpcTool for the commands). Single-threaded apart
// from what the event loop of watch and call runs.
#include <iostream>

#include "core/types/KyList.h"
#include "core/types/KyString.h"
#include "tools/kyipc/KyIpcTool.h"

int main(int argc, char** argv) {
    KyList<KyString> args;
    for (int k = 1; k < argc; ++k) args.append(KyString(argv[k]));
    KyIpcTool inspector(std::cout, std::cerr);
    return inspector.run(args);
}
