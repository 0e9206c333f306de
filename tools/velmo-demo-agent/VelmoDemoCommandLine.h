// VelmoDemoCommandLine: turns the demo agent's arguments and environment into
// workspace options. Pure functions of their input; any thread may call them.
#pragma once

#include <vector>

#include "core/types/KyString.h"
#include "tools/velmo-demo-agent/VelmoDemoWorkspace.h"

/// Parser of the velmo-demo-agent command line.
class VelmoDemoCommandLine {
public:
    /// What parse() found: options when ok, else an error text for the user.
    struct Result {
        bool ok = false;
        bool help = false;
        KyString error;
        VelmoDemoWorkspaceOptions options;
    };

    /// args without the program name. envDomain is VELMO_IPC_DOMAIN (empty when
    /// unset; trimmed, as the console trims it); "--domain" wins over it, and
    /// "velnet" is the default.
    static Result parse(const std::vector<KyString>& args, const KyString& envDomain);

    static KyString usage();
};
