// Logs lines for the logging tests, so rules read from the environment can be
// observed in a fresh process.
//
//   log_emitter levels [programRules]
//       For each category below, one line per level: "<LEVEL> <category>".
//       programRules, when given, is passed to KyDebug::setRules first.
//   log_emitter threads <logFile> <threads> <lines>
//       Turns on the file log and logs from many named threads at once.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "core/io/KyDebug.h"

namespace {

const char* const kCategories[] = {"ky.core.runtime.kytimer", "ky.ipc.shm", "ky.ipc.rpc.client", "ky.test.both",
                                   "ky.test.levels", "velmo.console"};

int emitLevels() {
    for (const char* category : kCategories) {
        kyLogDebug(category) << "DEBUG" << category;
        kyLogWarning(category) << "WARNING" << category;
        kyLogError(category) << "ERROR" << category;
    }
    return 0;
}

int emitThreads(const char* file, int threads, int lines) {
    KyDebug::setLogFile(file, "LogEmitter");
    KyDebug::setFileLoggingEnabled(true);
    const std::string padding(200, 'x');
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
        workers.emplace_back([t, lines, &padding] {
            KyDebug::setThreadName("worker-" + KyString::number(t));
            for (int i = 0; i < lines; ++i)
                kyLogWarning("ky.test.threads") << "t" + std::to_string(t) + "-l" + std::to_string(i) << padding;
        });
    }
    for (std::thread& w : workers) w.join();
    kyLogError("ky.test.threads") << "done";
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    const std::string mode = argc > 1 ? argv[1] : "";
    if (mode == "levels") {
        if (argc > 2) KyDebug::setRules(argv[2]);
        return emitLevels();
    }
    if (mode == "threads" && argc == 5) return emitThreads(argv[2], std::atoi(argv[3]), std::atoi(argv[4]));
    std::fprintf(stderr, "usage: log_emitter levels [rules] | threads <file> <threads> <lines>\n");
    return 2;
}
