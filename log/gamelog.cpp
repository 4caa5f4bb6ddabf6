#include "log/gamelog.h"

#include <unistd.h>

#include <cstdio>
#include <ctime>
#include <cwchar>
#include <cwctype>

namespace {

constexpr size_t kTextLimit = 65535;  // with the terminator
char log_buffer[65536];

const char* const* message_table = nullptr;
uint32_t message_count = 0;

// The text with '?' for each control character and each byte that is no character in the locale.
std::string WithoutControls(const std::string& text) {
    std::string shown;
    mbstate_t state{};
    for (size_t at = 0, length; at < text.size(); at += length) {
        wchar_t character;
        length = mbrtowc(&character, &text[at], text.size() - at, &state);
        if (length == 0 || length > text.size()) {  // a NUL, or no character
            character = L'\0';
            length = 1;
            state = {};
        }
        const bool kept = character == L'\n' || character == L'\t' ||
                          iswcntrl(static_cast<wint_t>(character)) == 0;
        shown += kept ? text.substr(at, length) : "?";
    }
    return shown;
}

}  // namespace

void PrintToStdout(const std::string& text) {
    fputs((isatty(STDOUT_FILENO) != 0 ? WithoutControls(text) : text).c_str(), stdout);
}

GameLog* gamelog = nullptr;
int32_t GameLog::m_level = 0;

void GameLog::Print(const char* text) {
    char stamp[1024] = "";
    const time_t now = time(nullptr);
    const tm* local = localtime(&now);
    if (local == nullptr || strftime(stamp, sizeof stamp - 1, "%c", local) == 0) stamp[0] = '\0';
    PrintToStdout(std::string("[") + stamp + "] " + text);
    fflush(stdout);
}

void GameLog::VPrintf(const char* format, va_list arguments) {
    vsnprintf(log_buffer, kTextLimit, format, arguments);
    Print(log_buffer);
}

void GameLog::Printf(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    VPrintf(format, arguments);
    va_end(arguments);
}

void GameLog::Printf(int32_t level, const char* format, ...) {
    if (level > m_level) return;
    va_list arguments;
    va_start(arguments, format);
    VPrintf(format, arguments);
    va_end(arguments);
}

void GameLog::PrintMsg(uint32_t msgno, ...) {
    va_list arguments;
    va_start(arguments, msgno);
    VPrintf(GetMessage(msgno), arguments);
    va_end(arguments);
}

void GameLog::AppendToFile(const char* path, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(log_buffer, kTextLimit, format, arguments);
    va_end(arguments);
    FILE* file = fopen(path, "ae");
    if (file == nullptr) return;
    fputs(log_buffer, file);
    fflush(file);
    fclose(file);
}

void GameLog::SetMessages(const char* const* table, uint32_t count) {
    message_table = table;
    message_count = count;
}

const char* GameLog::GetMessage(uint32_t msgno) {
    return msgno < message_count ? message_table[msgno] : "(null)";
}
