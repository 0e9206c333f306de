// KyX11PlatformIntegration's clipboard: owning PRIMARY and "CLIPBOARD",
// serving other clients' requests, and asking the owner for its text.
//
// The text is kept as UTF-8 under its own mutex. Transfers are single
// properties: a selection too large for one (INCR) is not read.
#include "gui/platform/KyX11PlatformIntegration.h"

#include <X11/Xatom.h>
#include <errno.h>
#include <time.h>

#include "core/io/KyDebug.h"

namespace {

constexpr const char* kCategory = "ky.gui.platform.x11";
constexpr int kClipboardPolls = 40;
constexpr long kClipboardPollNanoseconds = 5'000'000;

struct SelectionMatch {
    Window requestor;
    Atom selection;
    Atom property;
};

// Only the answer to this request: a SelectionNotify for our window and
// selection, carrying our property (or None when the owner refused).
Bool selectionPredicate(Display*, XEvent* event, XPointer arg) {
    const auto* match = reinterpret_cast<const SelectionMatch*>(arg);
    return event->type == SelectionNotify && event->xselection.requestor == match->requestor &&
           event->xselection.selection == match->selection &&
           (event->xselection.property == match->property || event->xselection.property == None);
}

void sleepOnePoll() {
    timespec left{0, kClipboardPollNanoseconds};
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

} // namespace

void KyX11PlatformIntegration::setClipboardText(const KyString& text) {
    if (!display_) return;
    ensureClipboardWindow_();
    {
        std::lock_guard lock(clipboardMutex_);
        clipboardTextUtf8_ = text.toStdString();
    }
    XSetSelectionOwner(display_, XA_PRIMARY, clipboardWindow_, CurrentTime);
    if (clipboard_) XSetSelectionOwner(display_, clipboard_, clipboardWindow_, CurrentTime);
    XFlush(display_);
}

KyString KyX11PlatformIntegration::clipboardText() {
    if (!display_) return {};
    ensureClipboardWindow_();
    const Atom selection = clipboard_ ? clipboard_ : XA_PRIMARY;
    const Window owner = XGetSelectionOwner(display_, selection);
    if (owner == None || owner == clipboardWindow_) {
        std::lock_guard lock(clipboardMutex_);
        return KyString(clipboardTextUtf8_);
    }
    KyString text = requestClipboardText(selection);
    if (!text.isEmpty()) return text;
    if (selection == clipboard_) return requestClipboardText(XA_PRIMARY);
    return text;
}

KyString KyX11PlatformIntegration::requestClipboardText(Atom selection) {
    if (!display_ || !clipboardWindow_ || !selection) return {};
    const Atom property = internalClipboard_ ? internalClipboard_ : selection;
    const Atom target = utf8String_ ? utf8String_ : XA_STRING;
    XConvertSelection(display_, selection, target, property, clipboardWindow_, CurrentTime);
    XFlush(display_);
    SelectionMatch match{clipboardWindow_, selection, property};
    XEvent event{};
    bool answered = false;
    // A bounded wait on the GUI thread (at most about 200 ms): an owner that
    // never answers costs that once and gives empty text.
    for (int poll = 0; poll < kClipboardPolls; ++poll) {
        if (XCheckIfEvent(display_, &event, &selectionPredicate, reinterpret_cast<XPointer>(&match))) {
            answered = true;
            break;
        }
        sleepOnePoll();
    }
    if (!answered) {
        kyLogWarning(kCategory) << "The clipboard owner did not answer; pasting nothing";
        return {};
    }
    if (event.xselection.property == None) return {};
    Atom type = None;
    int format = 0;
    unsigned long items = 0, after = 0;
    unsigned char* data = nullptr;
    const int status = XGetWindowProperty(display_, clipboardWindow_, property, 0, 0x1FFFFFFF, False, AnyPropertyType,
                                          &type, &format, &items, &after, &data);
    KyString text;
    if (status == Success && data) {
        const Atom incr = XInternAtom(display_, "INCR", True);
        if (incr != None && type == incr) {
            kyLogWarning(kCategory) << "The clipboard owner offered an incremental transfer, which is not read";
        } else {
            std::size_t bytes = items * static_cast<unsigned long>(format) / 8;
            // The owner sends a terminator with the text; exactly one is dropped.
            if (bytes > 0 && data[bytes - 1] == '\0') --bytes;
            text = KyString(reinterpret_cast<const char*>(data), bytes);
        }
    }
    if (data) XFree(data);
    XDeleteProperty(display_, clipboardWindow_, property);
    return text;
}

void KyX11PlatformIntegration::handleSelectionRequest_(const XSelectionRequestEvent& request) {
    XEvent reply{};
    reply.xselection.type = SelectionNotify;
    reply.xselection.display = display_;
    reply.xselection.requestor = request.requestor;
    reply.xselection.selection = request.selection;
    reply.xselection.target = request.target;
    reply.xselection.time = request.time;
    reply.xselection.property = None;
    // Old clients name no property: the target then doubles as one.
    const Atom property = request.property != None ? request.property : request.target;
    if (request.target == targets_) {
        // "TEXT" is served but not advertised.
        Atom offered[3];
        int count = 0;
        offered[count++] = targets_;
        if (utf8String_) offered[count++] = utf8String_;
        offered[count++] = XA_STRING;
        XChangeProperty(display_, request.requestor, property, XA_ATOM, 32, PropModeReplace,
                        reinterpret_cast<unsigned char*>(offered), count);
        reply.xselection.property = property;
    } else if ((utf8String_ && request.target == utf8String_) || request.target == text_ ||
               request.target == XA_STRING) {
        std::string bytes;
        {
            std::lock_guard lock(clipboardMutex_);
            bytes = clipboardTextUtf8_;
        }
        // The transferred bytes carry a terminator, which readers drop.
        if (bytes.empty() || bytes.back() != '\0') bytes.push_back('\0');
        const Atom type = (request.target == XA_STRING || !utf8String_) ? XA_STRING : utf8String_;
        XChangeProperty(display_, request.requestor, property, type, 8, PropModeReplace,
                        reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
        reply.xselection.property = property;
    }
    XSendEvent(display_, request.requestor, False, 0, &reply);
    XFlush(display_);
}
