// VelmoVpnLogSyntaxHighlighter: the five formats and the word rules.
#include "console/VelmoVpnLogSyntaxHighlighter.h"

#include <cctype>
#include <cstring>

namespace {

KyTextCharFormat logFormat(int red, int green, int blue, int weight) {
    KyTextCharFormat format;
    format.setForeground(KyColor(red, green, blue));
    format.setFontWeight(weight);
    return format;
}

bool isWordCharacter(char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0; }

} // namespace

VelmoVpnLogSyntaxHighlighter::VelmoVpnLogSyntaxHighlighter(KyTextDocument* document)
    : KySyntaxHighlighter(document),
      timestampFormat_(logFormat(127, 145, 151, KyTextCharFormat::kNormalWeight)),
      trafficFormat_(logFormat(220, 154, 84, KyTextCharFormat::kNormalWeight)),
      discoveryFormat_(logFormat(94, 156, 194, KyTextCharFormat::kNormalWeight)),
      successFormat_(logFormat(86, 176, 145, KyTextCharFormat::kNormalWeight)),
      errorFormat_(logFormat(203, 102, 102, KyTextCharFormat::kBoldWeight)) {}

VelmoVpnLogSyntaxHighlighter::~VelmoVpnLogSyntaxHighlighter() = default;

void VelmoVpnLogSyntaxHighlighter::highlightBlock(const KyString& text) {
    if (text.size() > 7 && text[2] == ':' && text[5] == ':') setFormat(0, 8, timestampFormat_);
    // In this order: where two words overlap, the later one's colour stays.
    highlightKeyword_(text, "VPN TX", trafficFormat_);
    highlightKeyword_(text, "VPN RX", discoveryFormat_);
    highlightKeyword_(text, "RTSP", trafficFormat_);
    highlightKeyword_(text, "DISCOVERY", discoveryFormat_);
    highlightKeyword_(text, "ERROR", errorFormat_);
    highlightKeyword_(text, "FAILED", errorFormat_);
    highlightKeyword_(text, "Disconnected", errorFormat_);
    highlightKeyword_(text, "Connecting", discoveryFormat_);
    highlightKeyword_(text, "Authenticated", successFormat_);
    highlightKeyword_(text, "connected", successFormat_);
    highlightKeyword_(text, "ready", successFormat_);
}

void VelmoVpnLogSyntaxHighlighter::highlightKeyword_(const KyString& text, const char* word,
                                                     const KyTextCharFormat& format) {
    const std::size_t length = std::strlen(word);
    if (length == 0) return;
    for (std::size_t at = text.indexOf(word); at != KyString::npos; at = text.indexOf(word, at + length)) {
        const bool joinedBefore = at > 0 && isWordCharacter(text[at - 1]);
        const bool joinedBehind = at + length < text.size() && isWordCharacter(text[at + length]);
        if (!joinedBefore && !joinedBehind) setFormat(static_cast<int>(at), static_cast<int>(length), format);
    }
}
