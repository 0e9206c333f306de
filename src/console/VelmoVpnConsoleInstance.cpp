// One console per user and display, over the console's own IPC domain.
//
// The place is a remote method, "showConsole", served under the object
// "console/instance/u<uid>/<display>" of the domain. Whoever holds the row
// of its request queue in the domain's signal registry holds the place: the
// registry gives a row to one live process at a time, and drops it as soon
// as that process is gone (kill reports it) or stops beating for 15 s. So a
// console killed with SIGKILL leaves nothing that blocks the next start, and
// two consoles starting at the same moment settle on the one that
// registered first; the other asks it to show itself, like any later start.
//
// A later start calls "showConsole" and waits up to kShowTimeoutMs. The
// holder answers at once and posts the show request handler to its event
// loop (a request that arrives before the handler is set waits for it). A
// holder that does not answer in time is hung, or stopped: the new start
// then serves the place itself and goes on, so the user gets a working
// console instead of nothing, and it keeps trying to take the registry row
// over until the silent holder's row goes stale, so that later starts find
// the live console. If the silent one comes back, both run; later starts
// reach whichever drains the shared request queue first.
//
// GUI thread only: the requests are served on the loop of the thread that
// called claim().
#include "console/VelmoVpnConsoleInstance.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

#include "core/io/KyDebug.h"
#include "core/platform/KyStandardPaths.h"
#include "core/runtime/KyCoreApplication.h"
#include "core/runtime/KyEventLoop.h"
#include "core/runtime/KyThread.h"
#include "ipc/IpcNames.h"
#include "ipc/ProxyObjectBase.h"
#include "ipc/RegistryTable.h"
#include "ipc/RpcMethodClient.h"
#include "ipc/RpcServerEndpoint.h"

namespace {

constexpr const char* kCategory = "velmo.console.instance";
constexpr const char* kShowMethod = "showConsole";
// Long enough for a console whose loop is busy with a slow agent call (those
// yield their fiber, so the loop goes on), short enough that a user who
// started the console again does not wonder whether anything happens.
constexpr int kShowTimeoutMs = 3000;
// How often a console that started past a silent one tries to take its row.
constexpr int kTakeOverPeriodMs = 1000;

// The display as a path segment: host and display number, without the
// screen (":0" and ":0.0" are one desktop), unsafe bytes as '_'.
KyString displayTag() {
    std::string display = KyStandardPaths::environment("DISPLAY").trimmed().toStdString();
    const std::size_t colon = display.rfind(':');
    if (colon != std::string::npos) {
        const std::size_t dot = display.find('.', colon);
        if (dot != std::string::npos) display.erase(dot);
    }
    if (display.empty()) return "none";
    std::string tag;
    for (char c : display) {
        const bool safe = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
                          c == '.' || c == '_';
        tag += safe ? c : '_';
    }
    // The registry keeps 64 bytes of an object path.
    if (tag.size() > 32) tag = tag.substr(tag.size() - 32);
    return KyString(tag);
}

bool processAlive(uint32_t pid) { return !ky::ipc::detail::processGone_(pid); }

}  // namespace

struct VelmoVpnConsoleInstance::Private {
    explicit Private(const KyString& domain)
        : registry{domain, KyString("console/instance/u") + KyString::number(static_cast<long long>(::getuid())) +
                               "/" + displayTag()},
          alive(std::make_shared<std::atomic<bool>>(true)),
          owner(ky::atomic::Thread::currentThread()),
          rpc(registry, "console-instance", alive, [thread = owner] { return thread; }) {}

    // The live process that holds the place's row now (this one included); 0 when none.
    uint32_t holderPid() const {
        const KyString signal = ky::ipc::rpcRequestQueueName(kShowMethod);
        for (const KyJsonValue& row : ky::ipc::RegistryTable<256>::snapshot(registry.domain)) {
            if (row.find("object") == nullptr || row.find("signal") == nullptr) continue;
            if (row.find("object")->toString() != registry.object || row.find("signal")->toString() != signal) continue;
            const uint32_t pid = ky::ipc::detail::rowPid_(row);
            if (processAlive(pid)) return pid;
        }
        return 0;
    }

    // Asks the holder to show its window; true when it answered.
    bool askToShow(uint32_t holder) const {
        ky::ipc::RpcMethodClient<bool> client(registry.domain, registry.object, kShowMethod,
                                              KyString("VelmoVpnConsole/") +
                                                  KyString::number(static_cast<long long>(::getpid())));
        if (client.call(kShowTimeoutMs)) {
            kyLogDebug(kCategory) << "The console of pid" << holder << "runs for this user and display: asked it to show";
            return true;
        }
        kyLogWarning(kCategory) << "The console of pid" << holder << "did not answer,"
                                << (KyString("(") + client.lastError() + KyString("):")) << "starting anyway";
        return false;
    }

    void serve() {
        if (served) rpc.stop(servedId);
        servedId = rpc.expose<bool>(kShowMethod, [this] { return onShowRequest(); }, true);
        served = true;
    }

    // Runs in the request queue's pass on this thread's loop; the handler
    // itself runs as posted work, so it may wait without holding the pass.
    bool onShowRequest() {
        if (!handler) {
            ++waitingRequests;
            return true;
        }
        postHandler();
        return true;
    }

    void postHandler() {
        KyCoreApplication* app = KyCoreApplication::instance();
        if (app && app->postEvent([alive = alive, fn = handler] {
                if (alive->load()) fn();
            }))
            return;
        handler();
    }

    // Past a silent holder: take the row as soon as the registry lets go of it.
    void keepTakingOver() {
        takeOver = KyEventLoop::installSlowRuntime(kTakeOverPeriodMs, [this, alive = alive] {
            if (!alive->load() || !takeOver || !takeOver->load()) return;
            if (holderPid() == static_cast<uint32_t>(::getpid())) {
                takeOver->store(false);
                kyLogDebug(kCategory) << "The console holds its place for this user and display again";
                return;
            }
            serve();
        });
    }

    ky::ipc::Registry registry;
    std::shared_ptr<std::atomic<bool>> alive;
    ky::atomic::Thread* owner;
    ky::ipc::RpcServerEndpoint rpc;
    bool served = false;
    bool claimed = false;
    uint64_t servedId = 0;
    int waitingRequests = 0;
    std::function<void()> handler;
    std::shared_ptr<std::atomic<bool>> takeOver;
};

VelmoVpnConsoleInstance::VelmoVpnConsoleInstance(const KyString& domain) : d_(std::make_unique<Private>(domain)) {}

VelmoVpnConsoleInstance::~VelmoVpnConsoleInstance() {
    d_->alive->store(false);
    if (d_->takeOver) d_->takeOver->store(false);
    d_->rpc.stopAll();
}

bool VelmoVpnConsoleInstance::claim() {
    if (d_->claimed) return true;
    const uint32_t self = static_cast<uint32_t>(::getpid());
    uint32_t holder = d_->holderPid();
    bool silentHolder = false;
    if (holder != 0 && holder != self) {
        if (d_->askToShow(holder)) return false;
        silentHolder = true;
    }
    d_->serve();
    if (!silentHolder) {
        // Another console that started at the same moment may have registered
        // first: the registry kept its row, so it holds the place.
        holder = d_->holderPid();
        if (holder != 0 && holder != self) {
            d_->rpc.stopAll();
            d_->served = false;
            if (d_->askToShow(holder)) return false;
            d_->serve();
            silentHolder = true;
        }
    }
    if (silentHolder) d_->keepTakingOver();
    d_->claimed = true;
    return true;
}

void VelmoVpnConsoleInstance::setShowRequestHandler(std::function<void()> handler) {
    d_->handler = std::move(handler);
    if (d_->handler && d_->waitingRequests > 0) {
        d_->waitingRequests = 0;
        d_->postHandler();
    }
}
