// Fuzzes the strict payload decoder: it accepts exactly standard base64 with its padding (a
// multiple of four characters from the standard alphabet, at most two "=" at the end) and then
// decodes as Qt does.
#include "bridge/CommandUrl.h"

#include <QRegularExpression>

#include <cstdint>
#include <cstdlib>

using namespace brindlemark;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString text = QString::fromLatin1(reinterpret_cast<const char*>(data), qsizetype(size));
    // Anchored at the very end: "$" alone would also match before a final line break.
    static const QRegularExpression strict(QRegularExpression::anchoredPattern("[A-Za-z0-9+/]*={0,2}"));
    const bool wellFormed = text.size() % 4 == 0 && strict.match(text).hasMatch();

    const std::optional<QByteArray> decoded = strictBase64Decode(text);
    if (decoded.has_value() != wellFormed)
        std::abort();
    if (decoded && *decoded != QByteArray::fromBase64(text.toLatin1()))
        std::abort();
    return 0;
}
