// KyIpcTool: the six commands of kyipc over the channel layer.
#include "tools/kyipc/KyIpcTool.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <memory>
#include <ostream>
#include <random>
#include <stdexcept>
#include <vector>

#include "core/runtime/KyCoreApplication.h"
#include "core/types/KyJsonDocument.h"
#include "core/types/KyMap.h"
#include "ipc/AppsRegistryTable.h"
#include "ipc/ChannelCore.h"
#include "ipc/IpcNames.h"
#include "ipc/ProxyObjectBase.h"
#include "ipc/RegistryTable.h"
#include "ipc/RpcMethodClient.h"
#include "ipc/ShmMapping.h"

namespace {

using namespace ky::ipc;

constexpr const char* kClientInfo = "kyipc";
constexpr const char* kRpcPrefix = "__rpc__|";
constexpr int kMaxTimeoutMs = INT_MAX / 1000;  // the loop's timers count microseconds in an int

// A mapped channel object, unmapped when the command ends.
class ChannelObject {
public:
    ChannelObject(void* base, size_t size) : base_(base), size_(size) {}
    ~ChannelObject() { detail::unmapChannelObject_(base_, size_); }
    ChannelObject(const ChannelObject&) = delete;
    ChannelObject& operator=(const ChannelObject&) = delete;
    void* base() const { return base_; }

private:
    void* base_;
    size_t size_;
};

detail::ChannelObjectSpec queueSpec(size_t slots) {
    using Layout = ShmQueueLayout<kPayloadCapacity, 1>;
    return {128 + slots * sizeof(ShmQueueSlot<kPayloadCapacity>) + 64, Layout::kMagic, Layout::kVersion,
            Layout::kInitialSeq};
}

detail::ChannelObjectSpec signalSpec() {
    using Layout = ShmLayout<kPayloadCapacity>;
    return {sizeof(Layout), Layout::kMagic, Layout::kVersion, Layout::kInitialSeq};
}

bool parseInt(const KyString& text, int minimum, int maximum, int& out) {
    bool ok = false;
    const long long v = text.toLongLong(&ok);
    if (!ok || v < minimum || v > maximum) return false;
    out = static_cast<int>(v);
    return true;
}

KyString rowText(const KyJsonValue& row, const char* key) { return row[key].toString(); }

KyString signatureText(const std::optional<KyIpcSignature>& signature) {
    if (!signature) return KyString("?");
    return signature->isEmpty() ? KyString("-") : signature->letters();
}

KyJsonValue signatureJson(const std::optional<KyIpcSignature>& signature) {
    return signature ? KyJsonValue(signature->letters()) : KyJsonValue();
}

// A request row's signature without the (id, pid, client info) head every request carries.
std::optional<KyIpcSignature> methodSignature(const std::optional<KyIpcSignature>& request) {
    if (!request || !request->letters().startsWith("tus")) return std::nullopt;
    return request->tail(3);
}

// True when the shared object exists; looked at without creating it.
bool objectExists(const KyString& name) {
    const int fd = ::shm_open(name.c_str(), O_RDONLY, 0);
    if (fd < 0) return false;
    ::close(fd);
    return true;
}

// The live rows of a domain's signal table, without creating a table for a
// domain that has none.
KyList<KyJsonValue> signalRows(const KyString& domain) {
    if (!objectExists(RegistryTable<256>::objectName(domain))) return {};
    KyList<KyJsonValue> rows;
    // Domains whose names sanitise alike share a table; keep to the one asked for.
    for (const KyJsonValue& row : RegistryTable<256>::snapshot(domain)) {
        if (rowText(row, "domain") == domain) rows.append(row);
    }
    return rows;
}

// The live row of (domain, object, name), if the domain's table has one.
std::optional<KyJsonValue> findRow(const KyString& domain, const KyString& object, const KyString& name) {
    for (const KyJsonValue& row : signalRows(domain)) {
        if (rowText(row, "object") == object && rowText(row, "signal") == name) return row;
    }
    return std::nullopt;
}

// The signature the registry holds for (domain, object, name), read from its
// stored type name; nullopt when there is no row or the name is unreadable.
std::optional<KyIpcSignature> registeredSignature(const KyString& domain, const KyString& object,
                                                  const KyString& name) {
    const std::optional<KyJsonValue> row = findRow(domain, object, name);
    if (!row) return std::nullopt;
    std::optional<KyIpcSignature> signature = KyIpcSignature::fromTypeName(rowText(*row, "typeName"));
    // The stored name is only a label; trust it when it hashes to the stored id.
    if (signature && detail::hex64(signature->typeId()) == rowText(*row, "typeId")) return signature;
    return std::nullopt;
}

KyString padded(const KyString& text, size_t width) {
    return text.size() >= width ? text + " " : text + KyString(width - text.size(), ' ');
}

}  // namespace

KyIpcTool::KyIpcTool(std::ostream& out, std::ostream& err) : out_(out), err_(err) {}

KyString KyIpcTool::usage() {
    return KyString(
        "usage: kyipc [--json] COMMAND ...\n"
        "  apps                                      live domains and their processes\n"
        "  signals DOMAIN                            the signal registry of a domain\n"
        "  targets DOMAIN [METHOD...]                objects serving all METHODs (any with none)\n"
        "  watch DOMAIN OBJECT SIGNAL SIG [--initial] [--count N] [--timeout MS] [--create]\n"
        "  publish DOMAIN OBJECT SIGNAL SIG ARGS... [--create]\n"
        "  call DOMAIN OBJECT METHOD SIG [ARGS...] [--timeout MS] [--capacity N]\n"
        "SIG is a string of letters: b bool, i int, u unsigned int, t 64-bit unsigned, s string\n"
        "(\"-\" or \"\" for none). Words after \"--\" are arguments even when they start with \"--\".\n"
        "Exit codes: 0 success, 1 failure, 2 bad command line or signature mismatch.\n");
}

int KyIpcTool::run(const KyList<KyString>& args) {
    Options options;
    if (!parseOptions_(args, options)) return kExitUsage;
    json_ = options.json;
    if (options.help) {
        out_ << usage() << std::flush;
        return kExitOk;
    }
    if (options.words.isEmpty()) return usageError_("no command given");
    const KyString command = options.words.first();
    // Options that mean something to one command only are refused elsewhere,
    // so a misplaced one is not silently ignored.
    auto refuse = [&](bool present, const char* option, const char* commands) -> bool {
        if (!present) return false;
        usageError_(KyString(option) + " applies to " + commands + " only");
        return true;
    };
    const bool isWatch = command == "watch";
    const bool isCall = command == "call";
    if (refuse(options.initial && !isWatch, "--initial", "watch") ||
        refuse(options.count > 0 && !isWatch, "--count", "watch") ||
        refuse(options.timeoutMs >= 0 && !isWatch && !isCall, "--timeout", "watch and call") ||
        refuse(options.create && !isWatch && command != "publish", "--create", "watch and publish") ||
        refuse(options.capacity != kDefaultCapacity && !isCall && command != "targets", "--capacity",
               "call and targets")) {
        return kExitUsage;
    }
    if (command == "apps") return apps_(options);
    if (command == "signals") return signals_(options);
    if (command == "targets") return targets_(options);
    if (isWatch) return watch_(options);
    if (isCall) return call_(options);
    if (command == "publish") return publish_(options);
    return usageError_(KyString("unknown command \"") + command + "\"");
}

bool KyIpcTool::parseOptions_(const KyList<KyString>& args, Options& options) {
    bool positionalOnly = false;
    for (size_t k = 0; k < args.size(); ++k) {
        const KyString& word = args[k];
        // Single-dash words stay arguments: "-5" is a number for i.
        if (positionalOnly || !word.startsWith("--")) {
            if (!positionalOnly && word == "-h") {
                options.help = true;
            } else {
                options.words.append(word);
            }
            continue;
        }
        if (word == "--") {
            positionalOnly = true;
            continue;
        }
        KyString name = word;
        KyString value;
        bool hasValue = false;
        const size_t eq = word.indexOf('=');
        if (eq != KyString::npos) {
            name = word.left(eq);
            value = word.mid(eq + 1);
            hasValue = true;
        }
        auto flag = [&](bool& target) {
            if (hasValue) {
                usageError_(name + " takes no value");
                return false;
            }
            target = true;
            return true;
        };
        auto number = [&](int minimum, int maximum, int& target) {
            if (!hasValue) {
                if (k + 1 >= args.size()) {
                    usageError_(name + " needs a value");
                    return false;
                }
                value = args[++k];
            }
            if (!parseInt(value, minimum, maximum, target)) {
                usageError_(name + " needs a whole number from " + KyString::number(minimum) + " to " +
                            KyString::number(maximum) + ", not \"" + value + "\"");
                return false;
            }
            return true;
        };
        bool ok = false;
        if (name == "--json") {
            ok = flag(options.json);
        } else if (name == "--initial") {
            ok = flag(options.initial);
        } else if (name == "--create") {
            ok = flag(options.create);
        } else if (name == "--help") {
            ok = flag(options.help);
        } else if (name == "--count") {
            ok = number(1, INT_MAX, options.count);
        } else if (name == "--timeout") {
            ok = number(0, kMaxTimeoutMs, options.timeoutMs);
        } else if (name == "--capacity") {
            ok = number(1, INT_MAX, options.capacity);
        } else {
            usageError_(KyString("unknown option ") + name);
        }
        if (!ok) return false;
    }
    return true;
}

int KyIpcTool::usageError_(const KyString& message) {
    err_ << "kyipc: " << message << "\n" << "Try 'kyipc --help'.\n" << std::flush;
    return kExitUsage;
}

int KyIpcTool::failure_(const KyString& message, int code) {
    if (json_) {
        KyJsonObject o;
        o.insert("ok", false);
        o.insert("error", message);
        printJson_(KyJsonValue(std::move(o)), true);
    }
    err_ << "kyipc: " << message << "\n" << std::flush;
    return code;
}

void KyIpcTool::printJson_(const KyJsonValue& value, bool compact) {
    KyString text = KyJsonDocument::generateJson(value, compact ? KyJsonDocument::Compact : KyJsonDocument::Indented);
    if (!text.endsWith("\n")) text += "\n";
    out_ << text << std::flush;
}

int KyIpcTool::openFailure_(const KyString& what, const KyString& domain, const KyString& object,
                                 const KyString& name, const KyIpcSignature& given, size_t skipLetters) {
    auto describe = [](const KyIpcSignature& s) {
        return s.isEmpty() ? KyString("no arguments")
                           : KyString("signature \"") + s.letters() + "\" (" + s.argumentList() + ")";
    };
    KyString message = what + ": " + object + " " + name;
    if (what.contains("type mismatch")) {
        std::optional<KyIpcSignature> remote = registeredSignature(domain, object, name);
        if (remote && skipLetters > 0) remote = methodSignature(remote);
        const KyIpcSignature mine = given.tail(skipLetters);
        if (remote) {
            message += KyString(" has ") + describe(*remote) + ", not \"" + mine.letters() + "\"";
        } else {
            message += KyString(" does not take ") + describe(mine) + " (the registry does not name what it takes)";
        }
    }
    // A channel of another signature or layout is a wrong command line; anything else failed on its own.
    return failure_(message, what.contains("mismatch") ? kExitUsage : kExitFailed);
}

int KyIpcTool::apps_(const Options& options) {
    if (options.words.size() != 1) return usageError_("apps takes no arguments");
    KyList<KyJsonValue> rows = AppsRegistryTable<64>::snapshotDomains();
    std::sort(rows.begin(), rows.end(), [](const KyJsonValue& a, const KyJsonValue& b) {
        return rowText(a, "domain") < rowText(b, "domain");
    });
    if (json_) {
        KyJsonArray array;
        for (const KyJsonValue& row : rows) array.append(row);
        printJson_(KyJsonValue(std::move(array)), false);
        return kExitOk;
    }
    out_ << padded("DOMAIN", 32) << "PIDS\n";
    for (const KyJsonValue& row : rows) {
        KyList<KyString> pids;
        for (const KyJsonValue& pid : row["pids"].asArray()) pids.append(KyString::number(pid.toInt64()));
        out_ << padded(rowText(row, "domain"), 32) << KyString::join(pids, " ") << "\n";
    }
    out_ << std::flush;
    return kExitOk;
}

int KyIpcTool::signals_(const Options& options) {
    if (options.words.size() != 2) return usageError_("usage: kyipc signals DOMAIN");
    const KyString domain = options.words[1];
    KyList<KyJsonValue> rows = signalRows(domain);
    std::sort(rows.begin(), rows.end(), [](const KyJsonValue& a, const KyJsonValue& b) {
        const KyString ka = rowText(a, "object") + "\n" + rowText(a, "signal");
        const KyString kb = rowText(b, "object") + "\n" + rowText(b, "signal");
        return ka < kb;
    });
    if (json_) {
        KyJsonArray array;
        for (const KyJsonValue& row : rows) {
            KyJsonObject o = row.toObject();
            o.insert("signature", signatureJson(KyIpcSignature::fromTypeName(rowText(row, "typeName"))));
            array.append(KyJsonValue(std::move(o)));
        }
        printJson_(KyJsonValue(std::move(array)), false);
        return kExitOk;
    }
    out_ << padded("OBJECT", 28) << padded("SIGNAL", 32) << padded("SIG", 8) << padded("PID", 9) << "SHM\n";
    for (const KyJsonValue& row : rows) {
        out_ << padded(rowText(row, "object"), 28) << padded(rowText(row, "signal"), 32)
             << padded(signatureText(KyIpcSignature::fromTypeName(rowText(row, "typeName"))), 8)
             << padded(KyString::number(static_cast<long long>(row["pid"].toInt64())), 9)
             << rowText(row, "shmName") << "\n";
    }
    out_ << std::flush;
    return kExitOk;
}

int KyIpcTool::targets_(const Options& options) {
    if (options.words.size() < 2) return usageError_("usage: kyipc targets DOMAIN [METHOD...]");
    const KyString domain = options.words[1];
    KyList<RpcRequestSpec> specs;
    for (size_t k = 2; k < options.words.size(); ++k) specs.append(RpcRequestSpec{options.words[k], 0});
    // Discovery keeps to this process's capacity, as a proxy would.
    rpcQueueCapacityStorage_() = options.capacity;
    // Discovery opens (and so would create) the domain's table; a domain without rows has no targets.
    const KyList<KyString> targets =
        signalRows(domain).isEmpty() ? KyList<KyString>() : discoverRpcTargets(domain, specs, false);

    // What each target offers, for the listing: its request queues of this capacity.
    const KyString prefix = KyString(kRpcPrefix) + KyString::number(options.capacity) + "|";
    KyJsonArray array;
    for (const KyString& target : targets) {
        const KyString object = target.mid(domain.size() + 1);
        KyMap<KyString, KyJsonValue> methods;
        for (const KyJsonValue& row : signalRows(domain)) {
            const KyString signal = rowText(row, "signal");
            if (rowText(row, "object") != object || !signal.startsWith(prefix)) continue;
            const KyString method = signal.mid(prefix.size());
            KyJsonObject m;
            m.insert("name", method);
            m.insert("signature",
                     signatureJson(methodSignature(KyIpcSignature::fromTypeName(rowText(row, "typeName")))));
            m.insert("typeId", rowText(row, "typeId"));
            methods.insert(method, KyJsonValue(std::move(m)));
        }
        KyJsonArray methodArray;
        for (const auto& [name, method] : methods) methodArray.append(method);
        KyJsonObject o;
        o.insert("target", target);
        o.insert("domain", domain);
        o.insert("object", object);
        o.insert("pid", static_cast<long long>(detail::remotePidOf_(domain, object)));
        o.insert("capacity", options.capacity);
        o.insert("methods", KyJsonValue(std::move(methodArray)));
        array.append(KyJsonValue(std::move(o)));
    }
    if (json_) {
        printJson_(KyJsonValue(std::move(array)), false);
        return kExitOk;
    }
    for (const KyJsonValue& t : array) {
        out_ << t["target"].toString() << "\n";
        for (const KyJsonValue& m : t["methods"].asArray()) {
            const KyString letters = m["signature"].isString() ? m["signature"].toString() : KyString("?");
            out_ << "    " << padded(m["name"].toString(), 28) << (letters.isEmpty() ? KyString("-") : letters)
                 << " -> b\n";
        }
    }
    out_ << std::flush;
    return kExitOk;
}

int KyIpcTool::watch_(const Options& options) {
    if (options.words.size() != 5) return usageError_("usage: kyipc watch DOMAIN OBJECT SIGNAL SIG [--initial] "
                                                      "[--count N] [--timeout MS] [--create]");
    const KyString domain = options.words[1];
    const KyString object = options.words[2];
    const KyString name = options.words[3];
    KyString error;
    const KyString letters = options.words[4] == "-" ? KyString() : options.words[4];
    std::optional<KyIpcSignature> signature = KyIpcSignature::parse(letters, &error);
    if (!signature) return usageError_(error);

    const KyString shmName = detail::make_shm_name(domain, object, name);
    if (!options.create && !objectExists(shmName)) {
        return failure_(KyString("no signal ") + domain + " " + object + " " + name +
                        " (nothing has opened it; --create waits for its first publisher)");
    }
    KyCoreApplication app;
    std::unique_ptr<ChannelObject> block;
    try {
        block = std::make_unique<ChannelObject>(detail::openChannelObject_(shmName, signalSpec(), signature->typeId()),
                                                signalSpec().size);
    } catch (const std::runtime_error& e) {
        return openFailure_(KyString(e.what()), domain, object, name, *signature, 0);
    }
    auto* layout = static_cast<ShmLayout<kPayloadCapacity>*>(block->base());

    auto state = std::make_shared<detail::SignalPollState>();
    state->fireInitial = options.initial;
    state->lastSeq = detail::signalSeq_(layout);
    int received = 0;
    auto closure = [&, state] {
        detail::BusyGuard guard(state->busy, state->missed);
        if (!guard.acquired()) return;
        if (options.count > 0 && received >= options.count) return;
        uint8_t buffer[kPayloadCapacity];
        size_t size = 0;
        if (!detail::takeSignalValue_(layout, *state, buffer, size)) return;
        Decoder d{buffer, size, 0};
        std::vector<KyIpcValue> values;
        if (!signature->decode(d, values)) {
            // A typed subscriber drops such a value silently; a person watching wants to know.
            err_ << "kyipc: dropped a value of " << size << " bytes that does not decode as \""
                 << signature->letters() << "\"\n" << std::flush;
            return;
        }
        ++received;
        if (json_) {
            KyJsonArray array;
            for (const KyIpcValue& v : values) array.append(v.toJson());
            KyJsonObject o;
            o.insert("signature", signature->letters());
            o.insert("values", KyJsonValue(std::move(array)));
            printJson_(KyJsonValue(std::move(o)), true);
        } else {
            out_ << KyIpcSignature::formatText(*signature, values) << "\n" << std::flush;
        }
        if (options.count > 0 && received >= options.count) app.quit();
    };
    detail::SubscriptionHandle subscription =
        detail::subscribe_(domain, object, name, KyString(), std::move(closure), 0);
    int timer = 0;
    if (options.timeoutMs > 0) {
        timer = app.addTimer([&app] { app.quit(); }, options.timeoutMs * 1000, true, KyFiberLaneDefault);
    }
    app.exec();
    if (timer != 0) app.removeTimer(timer);
    subscription.stop();
    if (options.count > 0 && received < options.count) {
        return failure_(KyString("watch ended after ") + KyString::number(received) + " of " +
                        KyString::number(options.count) + " value(s)");
    }
    return kExitOk;
}

int KyIpcTool::publish_(const Options& options) {
    if (options.words.size() < 5) return usageError_("usage: kyipc publish DOMAIN OBJECT SIGNAL SIG ARGS...");
    const KyString domain = options.words[1];
    const KyString object = options.words[2];
    const KyString name = options.words[3];
    KyString error;
    const KyString letters = options.words[4] == "-" ? KyString() : options.words[4];
    std::optional<KyIpcSignature> signature = KyIpcSignature::parse(letters, &error);
    if (!signature) return usageError_(error);
    KyList<KyString> words;
    for (size_t k = 5; k < options.words.size(); ++k) words.append(options.words[k]);
    std::vector<KyIpcValue> values;
    if (!signature->parseArguments(words, values, &error)) return usageError_(error);
    uint8_t buffer[kPayloadCapacity];
    Encoder e{buffer, sizeof(buffer), 0};
    if (!signature->encode(values, e)) {
        return failure_(KyString("the values do not fit the ") + KyString::number(static_cast<int>(kPayloadCapacity)) +
                        "-byte payload");
    }

    const KyString shmName = detail::make_shm_name(domain, object, name);
    if (!options.create && !objectExists(shmName)) {
        return failure_(KyString("no signal ") + domain + " " + object + " " + name +
                        " (nothing has opened it; --create makes it)");
    }
    std::unique_ptr<ChannelObject> block;
    try {
        block = std::make_unique<ChannelObject>(detail::openChannelObject_(shmName, signalSpec(), signature->typeId()),
                                                signalSpec().size);
    } catch (const std::runtime_error& ex) {
        return openFailure_(KyString(ex.what()), domain, object, name, *signature, 0);
    }
    detail::publishSignal_(static_cast<ShmLayout<kPayloadCapacity>*>(block->base()), buffer, e.pos);
    detail::notifySubscribers_(domain, object, name);
    if (json_) {
        KyJsonObject o;
        o.insert("ok", true);
        o.insert("shmName", shmName);
        o.insert("bytes", static_cast<long long>(e.pos));
        printJson_(KyJsonValue(std::move(o)), true);
    }
    return kExitOk;
}

int KyIpcTool::call_(const Options& options) {
    if (options.words.size() < 5) {
        return usageError_("usage: kyipc call DOMAIN OBJECT METHOD SIG [ARGS...] [--timeout MS] [--capacity N]");
    }
    const KyString domain = options.words[1];
    const KyString object = options.words[2];
    const KyString method = options.words[3];
    KyString error;
    const KyString letters = options.words[4] == "-" ? KyString() : options.words[4];
    std::optional<KyIpcSignature> signature = KyIpcSignature::parse(letters, &error);
    if (!signature) return usageError_(error);
    KyList<KyString> words;
    for (size_t k = 5; k < options.words.size(); ++k) words.append(options.words[k]);
    std::vector<KyIpcValue> values;
    if (!signature->parseArguments(words, values, &error)) return usageError_(error);

    // Any capacity goes into the names; only the known ones size the ring.
    const size_t slots = detail::rpcSelectRingSize_(options.capacity);
    const uint32_t pid = static_cast<uint32_t>(::getpid());
    const KyString requestName = detail::rpcRequestQueueNameFor_(options.capacity, method);
    const KyString replyName = detail::rpcResponseQueueNameFor_(options.capacity, method, pid);
    const KyIpcSignature requestSignature = *KyIpcSignature::parse("tus") + *signature;
    const KyIpcSignature replySignature = *KyIpcSignature::parse("tbsb");

    // Ids only need to differ from replies a former process of this pid left
    // in the reply queue, so a random start is enough.
    std::random_device random;
    const uint64_t id = (static_cast<uint64_t>(random()) << 32) ^ random();
    std::vector<KyIpcValue> request{KyIpcValue::fromUInt64(id), KyIpcValue::fromUInt(pid),
                                    KyIpcValue::fromString(kClientInfo)};
    request.insert(request.end(), values.begin(), values.end());
    uint8_t buffer[kPayloadCapacity];
    Encoder e{buffer, sizeof(buffer), 0};
    if (!requestSignature.encode(request, e)) return failure_(detail::kRpcQueueFullText);

    // A request queue nobody made has no server; creating it would queue the
    // call for whoever serves the method next, long after this tool is gone.
    const KyString requestShm = detail::make_shm_name(domain, object, requestName);
    if (!objectExists(requestShm)) {
        return failure_(KyString("no method ") + method + " on " + domain + " " + object + " (no request queue " +
                        requestName + ")");
    }
    KyCoreApplication app;
    std::unique_ptr<ChannelObject> requestQueue;
    std::unique_ptr<ChannelObject> replyQueue;
    try {
        requestQueue = std::make_unique<ChannelObject>(
            detail::openChannelObject_(requestShm, queueSpec(slots), requestSignature.typeId()), queueSpec(slots).size);
    } catch (const std::runtime_error& ex) {
        return openFailure_(KyString(ex.what()), domain, object, requestName, requestSignature, 3);
    }
    try {
        // The reply queue carries this process's pid: it goes when the tool ends.
        detail::noteOwnedObject_(detail::make_shm_name(domain, object, replyName));
        replyQueue = std::make_unique<ChannelObject>(
            detail::openChannelObject_(detail::make_shm_name(domain, object, replyName), queueSpec(slots),
                                       replySignature.typeId()),
            queueSpec(slots).size);
    } catch (const std::runtime_error& ex) {
        return openFailure_(KyString(ex.what()), domain, object, replyName, replySignature, 0);
    }

    bool done = false;
    bool ok = false;
    bool result = false;
    KyString replyError;
    auto state = std::make_shared<detail::QueuePollState>();
    state->fireInitial = true;
    void* replyBase = replyQueue->base();
    auto closure = [&, state, replyBase] {
        detail::BusyGuard guard(state->busy, state->missed);
        if (!guard.acquired()) return;
        detail::DrainedMessages messages;
        detail::drainQueue_(replyBase, slots, *state, messages);
        for (size_t i = 0; i < messages.count(); ++i) {
            Decoder d{messages.data(i), messages.size(i), 0};
            std::vector<KyIpcValue> reply;
            // Replies to calls of an earlier process with this pid are dropped, as the client drops late ones.
            if (!replySignature.decode(d, reply) || reply[0].t != id || done) continue;
            done = true;
            ok = reply[1].b;
            replyError = reply[2].s;
            result = ok && reply[3].b;
            app.quit();
        }
    };
    detail::SubscriptionHandle subscription = detail::subscribe_(
        domain, object, replyName, detail::queueSubscriberName_(1), std::move(closure), 0);
    if (!detail::pushQueue_(requestQueue->base(), slots, buffer, e.pos, requestShm)) {
        return failure_(detail::kRpcQueueFullText);
    }
    detail::notifySubscribers_(domain, object, requestName);

    const int timeoutMs = options.timeoutMs >= 0 ? options.timeoutMs : kDefaultCallTimeoutMs;
    int timer = 0;
    if (timeoutMs > 0) timer = app.addTimer([&app] { app.quit(); }, timeoutMs * 1000, true, KyFiberLaneDefault);
    app.exec();
    if (timer != 0) app.removeTimer(timer);
    subscription.stop();

    if (!done) {
        // The queue outlives its server; say so when no live process keeps its row.
        if (!findRow(domain, object, requestName)) {
            err_ << "kyipc: note: no live process is registered as serving " << method << "\n";
        }
        return failure_(detail::kRpcTimeoutText);
    }
    if (!ok) return failure_(replyError.isEmpty() ? KyString("rpc: the server refused the call") : replyError);
    if (json_) {
        KyJsonObject o;
        o.insert("ok", true);
        o.insert("result", result);
        printJson_(KyJsonValue(std::move(o)), true);
    } else {
        out_ << "b " << (result ? "true" : "false") << "\n" << std::flush;
    }
    return kExitOk;
}
