#include "platform/Platform.h"

namespace brindlemark {

Platform::~Platform() = default;

QString shortenedInTheMiddle(const QString& text, qsizetype limit)
{
    if (text.size() <= limit)
        return text;
    qsizetype head = (limit - 1) / 2, tail = limit - 1 - head;
    // Never between the two halves of a character outside the basic plane.
    if (head > 0 && text.at(head - 1).isHighSurrogate())
        --head;
    if (tail > 0 && text.at(text.size() - tail).isLowSurrogate())
        --tail;
    return text.left(head) + QChar(0x2026) + text.right(tail);
}

} // namespace brindlemark
