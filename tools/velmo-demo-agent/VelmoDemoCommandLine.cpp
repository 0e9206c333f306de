// VelmoDemoCommandLine: argument parsing of the demo agent.
#include "tools/velmo-demo-agent/VelmoDemoCommandLine.h"

#include <cstdint>

#include "tools/velmo-demo-agent/VelmoDemoCatalog.h"

namespace {

bool validDomain(const KyString& domain) {
    if (domain.isEmpty() || domain.size() > 64) return false;
    for (char c : domain) {
        const unsigned char u = static_cast<unsigned char>(c);
        // '|' separates the parts of a channel's name; blanks and controls only confuse.
        if (u <= ' ' || u == 0x7f || c == '|') return false;
    }
    return true;
}

} // namespace

KyString VelmoDemoCommandLine::usage() {
    return "Usage: velmo-demo-agent [options]\n"
           "  --domain NAME          IPC domain (default: $VELMO_IPC_DOMAIN, else \"velnet\")\n"
           "  --seed N               seed of the made-up catalog (default 1)\n"
           "  --catalog-size N       number of VPNs, 0 to 500 (default 12)\n"
           "  --state-dir DIR        where the remembered session lives\n"
           "Fault switches:\n"
           "  --slow-replies[=METHOD]  answer after 2600 ms (every method, or only METHOD)\n"
           "  --login-error            every sign-in fails with a server error\n"
           "  --malformed-snapshot     the first ready catalog snapshot is cut in half\n"
           "  --exit-in-call[=METHOD]  exit inside loginUser (or METHOD) without a reply\n"
           "  --reconnecting           start by retrying the saved session\n";
}

VelmoDemoCommandLine::Result VelmoDemoCommandLine::parse(const std::vector<KyString>& args, const KyString& envDomain) {
    Result r;
    // Read the way the console reads it, so both sides land in the same domain.
    if (!envDomain.trimmed().isEmpty()) r.options.domain = envDomain.trimmed();
    const KyList<KyString> methods = VelmoDemoWorkspace::methodNames();
    const auto fail = [&r](const KyString& text) {
        r.ok = false;
        r.error = text;
        return r;
    };
    for (std::size_t i = 0; i < args.size(); ++i) {
        KyString name = args[i];
        KyString value;
        bool hasValue = false;
        const std::size_t eq = name.indexOf('=');
        if (name.startsWith("--") && eq != KyString::npos) {
            value = name.mid(eq + 1);
            name = name.left(eq);
            hasValue = true;
        }
        // Options that need a value take it from "=VALUE" or from the next argument.
        const auto takeValue = [&](KyString& out) {
            if (hasValue) {
                out = value;
                return true;
            }
            if (i + 1 >= args.size()) return false;
            out = args[++i];
            return true;
        };
        const auto methodValue = [&](KyString& out) {
            if (!hasValue) return true;
            if (!methods.contains(value)) return false;
            out = value;
            return true;
        };
        if (name == "--help" || name == "-h") {
            r.help = true;
        } else if (name == "--domain") {
            KyString domain;
            if (!takeValue(domain)) return fail("--domain needs a value");
            if (!validDomain(domain)) return fail("Invalid domain: \"" + domain + "\"");
            r.options.domain = domain;
        } else if (name == "--seed") {
            KyString text;
            bool ok = false;
            if (!takeValue(text)) return fail("--seed needs a value");
            const unsigned long long seed = text.toULongLong(&ok);
            if (!ok || text.trimmed().startsWith("-")) return fail("Invalid seed: \"" + text + "\"");
            r.options.seed = static_cast<std::uint64_t>(seed);
        } else if (name == "--catalog-size") {
            KyString text;
            bool ok = false;
            if (!takeValue(text)) return fail("--catalog-size needs a value");
            const int size = text.toInt(&ok);
            if (!ok || size < 0 || size > VelmoDemoCatalog::kMaxHotspots)
                return fail("Invalid catalog size: \"" + text + "\" (0 to " +
                            KyString::number(VelmoDemoCatalog::kMaxHotspots) + ")");
            r.options.catalogSize = size;
        } else if (name == "--state-dir") {
            KyString dir;
            if (!takeValue(dir) || dir.isEmpty()) return fail("--state-dir needs a directory");
            r.options.stateDirectory = dir;
        } else if (name == "--slow-replies") {
            r.options.slowReplies = true;
            if (!methodValue(r.options.slowMethod)) return fail("Unknown method: \"" + value + "\"");
        } else if (name == "--exit-in-call") {
            r.options.exitInCall = true;
            if (!methodValue(r.options.exitMethod)) return fail("Unknown method: \"" + value + "\"");
        } else if (name == "--login-error" && !hasValue) {
            r.options.loginError = true;
        } else if (name == "--malformed-snapshot" && !hasValue) {
            r.options.malformedSnapshot = true;
        } else if (name == "--reconnecting" && !hasValue) {
            r.options.reconnecting = true;
        } else {
            return fail("Unknown option: \"" + args[i] + "\"");
        }
    }
    if (!validDomain(r.options.domain)) return fail("Invalid domain: \"" + r.options.domain + "\"");
    r.ok = true;
    return r;
}
