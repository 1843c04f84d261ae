// Fuzzes the strict payload decoder: it accepts exactly standard base64 with its padding, and then
// decodes as Qt does.
#include "bridge/CommandUrl.h"

#include <QRegularExpression>

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString text = QString::fromLatin1(reinterpret_cast<const char*>(data), qsizetype(size));
    // Anchored at the very end: "$" alone would also match before a final line break.
    static const QRegularExpression strict(QRegularExpression::anchoredPattern("[A-Za-z0-9+/]*={0,2}"));
    const std::optional<QByteArray> decoded = brindlemark::strictBase64Decode(text);
    if (decoded.has_value() != (text.size() % 4 == 0 && strict.match(text).hasMatch()) ||
        (decoded && *decoded != QByteArray::fromBase64(text.toLatin1())))
        std::abort();
    return 0;
}
