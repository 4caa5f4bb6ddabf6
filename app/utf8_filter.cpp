#include "app/utf8_filter.h"

#include <cstdint>

namespace {

constexpr char kReplacement[] = "\xEF\xBF\xBD";

// The well-formed characters by their first byte. The second byte's range keeps out overlong forms,
// surrogates and what lies beyond U+10FFFF; later bytes are 0x80 to 0xBF.
struct Form {
    uint8_t first, last;
    size_t length;
    uint8_t secondMin, secondMax;
};
constexpr Form kForms[] = {
    {0x00, 0x7F, 1, 0, 0},       {0xC2, 0xDF, 2, 0x80, 0xBF}, {0xE0, 0xE0, 3, 0xA0, 0xBF},
    {0xE1, 0xEC, 3, 0x80, 0xBF}, {0xED, 0xED, 3, 0x80, 0x9F}, {0xEE, 0xEF, 3, 0x80, 0xBF},
    {0xF0, 0xF0, 4, 0x90, 0xBF}, {0xF1, 0xF3, 4, 0x80, 0xBF}, {0xF4, 0xF4, 4, 0x80, 0x8F},
};

enum class Kind { WHOLE, UNFINISHED, INVALID };
struct Measured {
    Kind kind;
    size_t length;
};

// Looks at the front of a text that is not empty.
Measured Measure(std::string_view text) {
    const auto byte = [text](size_t i) { return static_cast<uint8_t>(text[i]); };
    for (const Form& form : kForms) {
        if (byte(0) < form.first || byte(0) > form.last) continue;
        for (size_t i = 1; i < form.length; ++i) {
            if (i == text.size()) return {Kind::UNFINISHED, i};
            const uint8_t min = i == 1 ? form.secondMin : 0x80;
            const uint8_t max = i == 1 ? form.secondMax : 0xBF;
            if (byte(i) < min || byte(i) > max) return {Kind::INVALID, i};
        }
        return {Kind::WHOLE, form.length};
    }
    return {Kind::INVALID, 1};
}

}  // namespace

std::string Utf8Filter::Filter(std::string_view piece) {
    const std::string text = m_held.append(piece);
    m_held.clear();
    std::string shown;
    for (std::string_view rest = text; !rest.empty();) {
        const Measured front = Measure(rest);
        if (front.kind == Kind::UNFINISHED) {
            m_held = rest;
            break;
        }
        shown += front.kind == Kind::WHOLE ? rest.substr(0, front.length) : kReplacement;
        rest.remove_prefix(front.length);
    }
    return shown;
}

std::string Utf8Filter::Finish() {
    const bool unfinished = !m_held.empty();
    m_held.clear();
    return unfinished ? kReplacement : "";
}

std::string ValidUtf8(std::string_view text) {
    Utf8Filter filter;
    std::string shown = filter.Filter(text);
    return shown + filter.Finish();
}
