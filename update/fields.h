// The fields of messages: how each kind is written and read.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>

// Appends a little-endian number, one byte for a bool.
template <std::unsigned_integral Number>
void PutField(std::string* payload, Number value) {
    for (size_t i = 0; i < sizeof value; ++i) payload->push_back(static_cast<char>(value >> 8 * i));
}
// Appends a text and a NUL.
inline void PutField(std::string* payload, std::string_view text) {
    payload->append(text);
    payload->push_back('\0');
}

// Takes fields off the front of a payload, which must outlive the reader. A field that reaches past
// the end makes the reader fail for good. Ok() is asked once, after the last field.
class FieldReader {
public:
    explicit FieldReader(std::string_view payload) : m_rest(payload) {}

    bool Ok() const { return m_ok; }
    bool AtEnd() const { return m_rest.empty(); }

    template <std::unsigned_integral Number>
    void Take(Number& field) {
        uint64_t value = 0;
        const std::string_view bytes = TakeBytes(sizeof field);
        int shift = 0;
        for (const char byte : bytes) {
            value |= uint64_t{static_cast<uint8_t>(byte)} << shift;
            shift += 8;
        }
        field = static_cast<Number>(value);
    }
    void Take(std::string& field) {
        field = TakeBytes(m_rest.find('\0'));
        TakeBytes(1);
    }

private:
    std::string_view TakeBytes(size_t count) {
        m_ok = m_ok && count <= m_rest.size();
        if (!m_ok) return {};
        const std::string_view bytes = m_rest.substr(0, count);
        m_rest.remove_prefix(count);
        return bytes;
    }

    std::string_view m_rest;
    bool m_ok = true;
};

// A message is a struct whose Fields() ties its fields in their order on the wire. kTag, if it has
// one, comes before them. FirstIsAll(), if it has that, tells from the first field that the others
// mean nothing and may be missing.

template <class Message>
std::string Encode(Message message) {
    std::string payload;
    if constexpr (requires { Message::kTag; }) payload = Message::kTag;
    std::apply([&](const auto&... fields) { (PutField(&payload, fields), ...); }, message.Fields());
    return payload;
}

// Nothing for a payload that ends before the last field. Ignores bytes behind it.
template <class Message>
std::optional<Message> Decode(const uint8_t* data, size_t length) {
    const std::string_view payload(reinterpret_cast<const char*>(data), length);
    FieldReader reader(payload);
    Message message{};
    if constexpr (requires { message.FirstIsAll(); }) {
        FieldReader first(payload);
        first.Take(std::get<0>(message.Fields()));
        if (first.Ok() && message.FirstIsAll()) return message;
    }
    std::apply([&](auto&... fields) { (reader.Take(fields), ...); }, message.Fields());
    return reader.Ok() ? std::optional(std::move(message)) : std::nullopt;
}
