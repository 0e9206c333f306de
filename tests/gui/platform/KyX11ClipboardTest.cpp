// The clipboard between processes on a private Xvfb: this process and a
// helper process of our own in both directions, the bytes another client
// receives for each target, an owner that never answers, and an ordinary X
// client (xclip) in both directions when it is installed.
#include <X11/Xatom.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "../../support/KyTestProcess.h"
#include "../../support/KyTestX11.h"

namespace {

using namespace std::chrono_literals;

const std::string kText = "Z\u00fcrich \u2192 \u041f\u0440\u0438\u0432\u0435\u0442 VPN";

struct X11Clipboard : kytest::GuiFixture {
    // Runs our loop (so we can serve) until the child printed text; each look
    // at its output waits a few milliseconds (a whole one rounds to nothing).
    // Our claim and another client's request travel on two connections, so the
    // server may read the request first: wait until it names an owner.
    bool ownerIsKnown() {
        return runUntil([&] { return XGetSelectionOwner(user->display(), user->atom("CLIPBOARD")) != None; });
    }
    bool pumpUntilOutput(kytest::Child& child, const std::string& text) {
        return runUntil([&] { return child.waitForText(text, 3ms); });
    }
    bool startPeer(kytest::Child& peer) {
        return peer.start(kytest::helperPath("KyClipboardPeer"), {}) && peer.waitForText("ready\n", 20s);
    }
};

TEST_F(X11Clipboard, TextTravelsToAnotherProcessAndBack) {
    kytest::Child peer;
    ASSERT_TRUE(startPeer(peer)) << "exit " << peer.finish(5s) << ": " << peer.err();
    platform()->setClipboardText(kText);
    EXPECT_EQ(platform()->clipboardText(), kText) << "our own text needs no round trip";
    ASSERT_TRUE(ownerIsKnown()) << "the server never saw our claim on the clipboard";
    peer.writeInput("get\n");
    ASSERT_TRUE(pumpUntilOutput(peer, "got:" + kText + "\n")) << peer.out() << peer.err();

    const std::string theirs = "caf\u00e9 from the peer";
    peer.writeInput("set " + theirs + "\n");
    ASSERT_TRUE(peer.waitForText("ok\n", 20s));
    // One read waits at most ~200 ms for the owner; a loaded machine may need a second ask.
    std::string read;
    EXPECT_TRUE(runUntil([&] { return (read = platform()->clipboardText().toStdString()) == theirs; })) << read;
}

// Asks the selection owner for target into a property of a window of the user's own.
struct Answer { bool arrived = false; Atom type = None; int format = 0; std::string bytes; std::vector<Atom> atoms; };

TEST_F(X11Clipboard, ServedTargetsAndTextCarryOneTerminator) {
    platform()->setClipboardText("abc");
    ASSERT_TRUE(ownerIsKnown()) << "the server never saw our claim on the clipboard";
    Display* d = user->display();
    const Window requestor = XCreateSimpleWindow(d, DefaultRootWindow(d), 0, 0, 1, 1, 0, 0, 0);
    const Atom property = user->atom("KY_TEST_PASTE");
    auto request = [&](Atom target) {
        Answer answer;
        XConvertSelection(d, user->atom("CLIPBOARD"), target, property, requestor, CurrentTime);
        XSync(d, False);
        XEvent event;
        runUntil([&] { return answer.arrived = XCheckTypedWindowEvent(d, requestor, SelectionNotify, &event); });
        if (!answer.arrived || event.xselection.property == None) return answer;
        unsigned long items = 0, after = 0;
        unsigned char* data = nullptr;
        XGetWindowProperty(d, requestor, property, 0, 1 << 20, True, AnyPropertyType, &answer.type, &answer.format,
                           &items, &after, &data);
        if (answer.format == 32)
            for (unsigned long i = 0; i < items; ++i) answer.atoms.push_back(reinterpret_cast<Atom*>(data)[i]);
        else if (data)
            answer.bytes.assign(reinterpret_cast<char*>(data), items);
        if (data) XFree(data);
        return answer;
    };
    const Answer targets = request(user->atom("TARGETS"));
    ASSERT_TRUE(targets.arrived);
    EXPECT_EQ(targets.type, XA_ATOM);
    EXPECT_EQ(targets.atoms, (std::vector<Atom>{user->atom("TARGETS"), user->atom("UTF8_STRING"), XA_STRING}))
        << "TEXT is served but not advertised";
    const struct {
        const char* target;
        Atom type;
    } rows[] = {{"UTF8_STRING", user->atom("UTF8_STRING")}, {"TEXT", user->atom("UTF8_STRING")}, {"STRING", XA_STRING}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.target);
        const Answer text = request(user->atom(row.target));
        ASSERT_TRUE(text.arrived);
        EXPECT_EQ(text.type, row.type);
        EXPECT_EQ(text.bytes, std::string("abc", 4)) << "the text and one NUL";
    }
    const Answer refused = request(user->atom("image/png"));
    EXPECT_TRUE(refused.arrived);
    EXPECT_EQ(refused.type, static_cast<Atom>(None));
    XDestroyWindow(d, requestor);
}

TEST_F(X11Clipboard, AnOwnerThatNeverAnswersGivesEmptyTextInBoundedTime) {
    Display* d = user->display();
    const Window silent = XCreateSimpleWindow(d, DefaultRootWindow(d), 0, 0, 1, 1, 0, 0, 0);
    XSetSelectionOwner(d, user->atom("CLIPBOARD"), silent, CurrentTime);
    XSetSelectionOwner(d, XA_PRIMARY, silent, CurrentTime);
    XSync(d, False);
    EXPECT_EQ(platform()->clipboardText(), "");
    XDestroyWindow(d, silent);
    XSync(d, False);
}

TEST_F(X11Clipboard, AnOrdinaryClientPastesOurTextAndCopiesToUs) {
    if (::access("/usr/bin/xclip", X_OK) != 0) GTEST_SKIP() << "xclip is not installed";
    platform()->setClipboardText(kText);
    kytest::Child paste;
    ASSERT_TRUE(paste.start("/usr/bin/xclip", {"-selection", "clipboard", "-o"}));
    ASSERT_TRUE(runUntil([&] { return paste.waitForOutput(kText.size() + 1, 3ms); }));
    EXPECT_EQ(paste.out(), kText + std::string(1, '\0')) << "the text with its terminator";
    EXPECT_EQ(paste.finish(), 0);

    const std::string copied = "copied by xclip: \u00e0 \u03c9";
    kytest::Child copy;
    ASSERT_TRUE(copy.start("/usr/bin/xclip", {"-quiet", "-loops", "1", "-selection", "clipboard", "-i"}));
    copy.writeInput(copied);
    copy.closeInput();
    // xclip owns the clipboard once it has read its input.
    Display* d = user->display();
    ASSERT_TRUE(kytest::waitUntil([&] {
        const Window owner = XGetSelectionOwner(d, user->atom("CLIPBOARD"));
        return owner != None && platform()->clipboardText() == copied;
    }));
    EXPECT_EQ(copy.finish(), 0);
}

} // namespace
