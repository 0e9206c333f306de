// KyTextBlock: lookups through the document's line index.
#include "gui/text/KyTextBlock.h"

#include "gui/text/KyTextDocument.h"

bool KyTextBlock::isValid() const { return document_ && number_ >= 0 && number_ < document_->blockCount(); }

int KyTextBlock::position() const { return isValid() ? document_->blockPosition(number_) : -1; }

int KyTextBlock::length() const { return isValid() ? document_->blockLength(number_) : 0; }

KyString KyTextBlock::text() const { return isValid() ? document_->blockText(number_) : KyString(); }

bool KyTextBlock::contains(int pos) const {
    if (!isValid()) return false;
    const int start = position();
    return pos >= start && pos <= start + length();
}
