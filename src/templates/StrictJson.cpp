#include "templates/StrictJson.h"

#include <cstring>
#include <vector>

namespace brindlemark {

namespace {

// Reads one token at a time; the nesting lives in a stack of its own, never in the call stack,
// so no depth of brackets can overflow it.
class Scanner {
public:
    explicit Scanner(QByteArrayView text)
        : m_p(reinterpret_cast<const unsigned char*>(text.data())), m_end(m_p + text.size()) {}

    bool atEnd() const { return m_p == m_end; }
    bool next(unsigned char c) const { return m_p != m_end && *m_p == c; }

    // Takes `c` when it comes next.
    bool accept(unsigned char c) {
        if (!next(c))
            return false;
        ++m_p;
        return true;
    }

    void skipWhitespace() {
        while (m_p != m_end && (*m_p == ' ' || *m_p == '\t' || *m_p == '\n' || *m_p == '\r'))
            ++m_p;
    }

    // A string, number or literal; the caller has seen that the text does not end here.
    bool scalar() {
        switch (*m_p) {
        case '"':
            return string();
        case 't':
            return word("true");
        case 'f':
            return word("false");
        case 'n':
            return word("null");
        default:
            return number();
        }
    }

    // A member's name and its colon, white space before the colon included.
    bool memberName() {
        if (!next('"') || !string())
            return false;
        skipWhitespace();
        return accept(':');
    }

private:
    static bool digit(unsigned char c) { return c >= '0' && c <= '9'; }
    static bool hexDigit(unsigned char c) {
        return digit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
    }

    bool word(const char* literal) {
        const std::size_t length = std::strlen(literal);
        if (std::size_t(m_end - m_p) < length || std::memcmp(m_p, literal, length) != 0)
            return false;
        m_p += length;
        return true;
    }

    bool digits() {
        const unsigned char* start = m_p;
        while (m_p != m_end && digit(*m_p))
            ++m_p;
        return m_p != start;
    }

    bool number() {
        accept('-');
        if (!accept('0') && !digits()) // a leading zero stands alone
            return false;
        if (accept('.') && !digits())
            return false;
        if (accept('e') || accept('E')) {
            if (!accept('+'))
                accept('-');
            return digits();
        }
        return true;
    }

    bool string() {
        ++m_p; // the opening quote
        while (m_p != m_end) {
            const unsigned char c = *m_p;
            if (c == '"') {
                ++m_p;
                return true;
            }
            if (c < 0x20)
                return false;
            if (c == '\\') {
                if (!escape())
                    return false;
            } else if (c < 0x80) {
                ++m_p;
            } else if (!utf8Sequence()) {
                return false;
            }
        }
        return false; // no closing quote
    }

    bool escape() {
        ++m_p; // the backslash
        if (m_p == m_end)
            return false;
        const unsigned char c = *m_p++;
        if (c != 0 && std::strchr("\"\\/bfnrt", c))
            return true;
        if (c != 'u' || m_end - m_p < 4)
            return false;
        for (int i = 0; i < 4; ++i)
            if (!hexDigit(*m_p++))
                return false;
        return true;
    }

    // One character beyond ASCII, its bytes as the Unicode standard allows them (Table 3-7).
    bool utf8Sequence() {
        const unsigned char c = *m_p;
        int continuation = 0;
        unsigned char low = 0x80, high = 0xBF; // the range of the second byte
        if (c >= 0xC2 && c <= 0xDF) {
            continuation = 1;
        } else if (c >= 0xE0 && c <= 0xEF) {
            continuation = 2;
            if (c == 0xE0)
                low = 0xA0; // shorter forms are overlong
            else if (c == 0xED)
                high = 0x9F; // the surrogates U+D800..U+DFFF
        } else if (c >= 0xF0 && c <= 0xF4) {
            continuation = 3;
            if (c == 0xF0)
                low = 0x90;
            else if (c == 0xF4)
                high = 0x8F; // nothing past U+10FFFF
        } else {
            return false;
        }
        if (m_end - m_p <= continuation || m_p[1] < low || m_p[1] > high)
            return false;
        for (int i = 2; i <= continuation; ++i)
            if (m_p[i] < 0x80 || m_p[i] > 0xBF)
                return false;
        m_p += continuation + 1;
        return true;
    }

    const unsigned char* m_p;
    const unsigned char* m_end;
};

} // namespace

bool isStrictJson(QByteArrayView text) {
    Scanner in(text);
    std::vector<unsigned char> closers; // for each open array or object, the bracket it ends with
    bool valueExpected = true;
    for (;;) {
        in.skipWhitespace();
        if (valueExpected) {
            if (in.atEnd())
                return false;
            const bool array = in.accept('[');
            if (array || in.accept('{')) {
                const unsigned char closer = array ? ']' : '}';
                if (closers.size() == std::size_t(StrictJsonMaxDepth))
                    return false;
                in.skipWhitespace();
                if (in.accept(closer)) { // empty: a whole value already
                    valueExpected = false;
                } else {
                    closers.push_back(closer);
                    if (closer == '}' && !in.memberName())
                        return false;
                }
            } else if (!in.scalar()) {
                return false;
            } else {
                valueExpected = false;
            }
            continue;
        }
        // After a value: the end of the text, a comma, or the innermost closing bracket.
        if (closers.empty())
            return in.atEnd();
        if (in.accept(',')) {
            in.skipWhitespace();
            if (closers.back() == '}' && !in.memberName())
                return false;
            valueExpected = true;
        } else if (in.accept(closers.back())) {
            closers.pop_back();
        } else {
            return false;
        }
    }
}

} // namespace brindlemark
