// The game log, through which every part of the program reports what it does.
#pragma once

#include <concepts>
#include <cstdarg>
#include <cstdint>
#include <string>

// Writes to standard output. A terminal gets '?' for each control character but line feeds and
// tabs: texts can hold names that a server has chosen.
void PrintToStdout(const std::string& text);

// Formats log texts and passes each finished text to the virtual Print(). The base class writes to
// standard output; the updater derives from it to fill its console.
//
// Texts bring their own line end. All formatted prints share one static buffer, which cuts a text
// at 65534 characters; an override of Print() must not print to the log. One thread only.
class GameLog {
public:
    virtual ~GameLog() = default;

    // Writes `text` behind a local-time stamp, "[%s] %s", to standard output and flushes it.
    virtual void Print(const char* text);

    void Printf(const char* format, ...) __attribute__((format(printf, 2, 3)));
    // Prints only when `level` is at most m_level.
    void Printf(int32_t level, const char* format, ...) __attribute__((format(printf, 3, 4)));

    void VPrintf(const char* format, va_list arguments) __attribute__((format(printf, 2, 0)));

    // Like Printf, with the format taken from the message table. An int32_t first argument is a
    // level, a uint32_t a message number.
    void PrintMsg(uint32_t msgno, ...);
    template <std::same_as<int32_t> Level>
    void PrintMsg(Level level, uint32_t msgno, ...) {
        if (level > m_level) return;
        va_list arguments;
        va_start(arguments, msgno);
        VPrintf(GetMessage(msgno), arguments);
        va_end(arguments);
    }

    // Appends the formatted text to the file at `path`, unstamped. Does nothing when the file
    // cannot be opened.
    static void AppendToFile(const char* path, const char* format, ...)
        __attribute__((format(printf, 2, 3)));

    // Installs the message table, which is not copied.
    static void SetMessages(const char* const* table, uint32_t count);
    // The format with this number, "(null)" for a number outside the table.
    static const char* GetMessage(uint32_t msgno);

    static int32_t m_level;
};

// The one log in use, not owned. Null until the updater starts up, and always in the crash
// reporter. Nothing may log while it is null.
extern GameLog* gamelog;
