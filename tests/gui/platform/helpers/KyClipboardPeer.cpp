// A second process for the clipboard tests: a GUI application of its own on
// the test's X server, driven by lines on its standard input.
//   "set <text>"  takes the clipboard with text, answers "ok"
//   "get"         answers "got:<text>" with the clipboard's text
// It serves selection requests from its loop until its input ends.
#include <unistd.h>

#include <cstdio>
#include <string>

#include "core/runtime/KyIoDispatcher.h"
#include "gui/platform/KyGuiApplication.h"
#include "gui/platform/KyPlatformIntegration.h"

int main() {
    KyGuiApplication app;
    KyPlatformIntegration* platform = app.platformIntegration();
    std::string pending;
    auto answer = [](const std::string& line) {
        std::fwrite(line.data(), 1, line.size(), stdout);
        std::fflush(stdout);
    };
    const int watch = app.ioDispatcher()->watchFd(
        0, KyIoDispatcher::Readable, [&app](std::function<void()> fn) { app.postEventOnLane(std::move(fn), 1); },
        [&](int fd, uint32_t) {
            char buf[4096];
            const ssize_t got = ::read(fd, buf, sizeof buf);
            if (got <= 0) {
                app.quit();
                return;
            }
            pending.append(buf, static_cast<std::size_t>(got));
            for (std::size_t nl; (nl = pending.find('\n')) != std::string::npos;) {
                const std::string line = pending.substr(0, nl);
                pending.erase(0, nl + 1);
                if (line.rfind("set ", 0) == 0) {
                    platform->setClipboardText(line.substr(4));
                    answer("ok\n");
                } else if (line == "get") {
                    answer("got:" + platform->clipboardText().toStdString() + "\n");
                }
            }
        });
    if (!watch) return 2;
    answer("ready\n");
    return app.exec();
}
