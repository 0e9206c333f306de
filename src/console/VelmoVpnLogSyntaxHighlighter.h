// VelmoVpnLogSyntaxHighlighter: the colours of the monitor log.
//
// A line that starts with a time ("12:34:56 ...") shows it muted; then whole
// words of the agent's vocabulary are coloured by what they are about:
// traffic, discovery, success and errors (errors also bold). The words are
// tried in a fixed order and a later word wins where two overlap. A word
// counts only where it stands alone, so "disconnected" is not mistaken for
// "connected". The log is fed one line at a time; the base class colours just
// the appended line, and nothing when old lines are trimmed.
//
// Belongs to the log document's thread (the main thread); attached to the
// document of the read-only log editor.
#pragma once

#include "gui/text/KySyntaxHighlighter.h"
#include "gui/text/KyTextCharFormat.h"

/// Colours the monitor log.
class VelmoVpnLogSyntaxHighlighter : public KySyntaxHighlighter {
    KY_OBJECT(VelmoVpnLogSyntaxHighlighter, KySyntaxHighlighter)

public:
    /// Attached to document (its child) when one is given.
    explicit VelmoVpnLogSyntaxHighlighter(KyTextDocument* document = nullptr);
    ~VelmoVpnLogSyntaxHighlighter() override;

    /// rgb(127, 145, 151): the leading time.
    const KyTextCharFormat& timestampFormat() const { return timestampFormat_; }
    /// rgb(220, 154, 84): "VPN TX", "RTSP".
    const KyTextCharFormat& trafficFormat() const { return trafficFormat_; }
    /// rgb(94, 156, 194): "VPN RX", "DISCOVERY", "Connecting".
    const KyTextCharFormat& discoveryFormat() const { return discoveryFormat_; }
    /// rgb(86, 176, 145): "Authenticated", "connected", "ready".
    const KyTextCharFormat& successFormat() const { return successFormat_; }
    /// rgb(203, 102, 102), weight 700: "ERROR", "FAILED", "Disconnected".
    const KyTextCharFormat& errorFormat() const { return errorFormat_; }

protected:
    /// The time when the line is longer than 7 characters with ":" at
    /// positions 2 and 5 (its first 8 characters), then the eleven words in order.
    void highlightBlock(const KyString& text) override;
    /// Formats every whole-word, case-sensitive occurrence of word in text:
    /// a hit counts when neither the character before nor the one behind is
    /// alphanumeric; the search goes on behind each hit.
    void highlightKeyword_(const KyString& text, const char* word, const KyTextCharFormat& format);

private:
    KyTextCharFormat timestampFormat_;
    KyTextCharFormat trafficFormat_;
    KyTextCharFormat discoveryFormat_;
    KyTextCharFormat successFormat_;
    KyTextCharFormat errorFormat_;
};
