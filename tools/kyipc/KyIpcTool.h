// KyIpcTool: the commands of the kyipc tool, which speaks the IPC
// protocol with signatures given on the command line.
//
// It reads the three registries (apps, signals, targets), samples a signal
// (watch), stores a value in one (publish) and calls an RPC method whose
// result is a bool (call), all through the non-template channel layer with a
// run-time signature (KyIpcSignature). watch and call run a KyCoreApplication
// loop on the calling thread for as long as the command lasts; the others run
// no loop. An inspector leaves no trace a typed peer would not: it registers
// no signal rows, only the subscriber rows its wake-ups need, and it opens an
// existing signal or method rather than inventing one, unless --create says
// so (a channel created with a mistyped signature would refuse its real
// publisher until someone removes it). Call and reply queues are left in
// place, as every RPC client leaves them.
//
// Exit codes: 0 success; 1 the operation failed (RPC error or timeout, no
// such channel, fewer values than --count); 2 the command line is wrong or
// does not fit the remote side (usage, signature letter, argument, type
// mismatch). Messages go to the error stream, results to the output stream;
// with --json every result is JSON (watch prints one object per line).
//
// One inspector runs one command on the calling thread.
#pragma once

#include <iosfwd>

#include "core/types/KyList.h"
#include "core/types/KyString.h"
#include "tools/kyipc/KyIpcSignature.h"

/// Runs one kyipc command line and reports through two streams.
class KyIpcTool {
public:
    static constexpr int kExitOk = 0;
    static constexpr int kExitFailed = 1;
    static constexpr int kExitUsage = 2;
    /// RPC queue capacity both ends use unless told otherwise.
    static constexpr int kDefaultCapacity = 100;
    /// Time a call waits for its reply unless --timeout says otherwise.
    static constexpr int kDefaultCallTimeoutMs = 2000;

    KyIpcTool(std::ostream& out, std::ostream& err);

    /// Runs the command in args (the words after the program name); returns the exit code.
    int run(const KyList<KyString>& args);

    /// The help text.
    static KyString usage();

private:
    struct Options {
        bool json = false;
        bool initial = false;
        bool create = false;
        bool help = false;
        int count = 0;          // 0: no limit
        int timeoutMs = -1;     // -1: the command's default
        int capacity = kDefaultCapacity;
        KyList<KyString> words; // command and positional arguments
    };

    bool parseOptions_(const KyList<KyString>& args, Options& options);
    int apps_(const Options& options);
    int signals_(const Options& options);
    int targets_(const Options& options);
    int watch_(const Options& options);
    int call_(const Options& options);
    int publish_(const Options& options);

    /// Prints "kyipc: message" and the usage hint; returns kExitUsage.
    int usageError_(const KyString& message);
    /// Prints "kyipc: message" (and a JSON error object with --json); returns code.
    int failure_(const KyString& message, int code = kExitFailed);
    /// Turns an exception of the channel layer into a message that names the
    /// remote side's signature when the registry knows it.
    int openFailure_(const KyString& what, const KyString& domain, const KyString& object, const KyString& name,
                     const KyIpcSignature& given, size_t skipLetters);
    void printJson_(const KyJsonValue& value, bool compact);

    std::ostream& out_;
    std::ostream& err_;
    bool json_ = false;
};
