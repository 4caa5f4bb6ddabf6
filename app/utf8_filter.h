// Makes text that GTK takes out of any bytes.
#ifndef HALCYRIX_APP_UTF8_FILTER_H
#define HALCYRIX_APP_UTF8_FILTER_H

#include <string>
#include <string_view>

// Filters a stream of bytes that arrives in pieces. Valid UTF-8 passes unchanged, also where the
// pieces cut a character in two; whatever cannot become a character is replaced by U+FFFD.
class Utf8Filter {
public:
    // What can be shown now. A character that is unfinished at the end of the piece is held back
    // until the next one finishes it, or shows that it never will be.
    std::string Filter(std::string_view piece);

    // Ends the stream: U+FFFD for what is held back, if anything is.
    std::string Finish();

private:
    std::string m_held;
};

// The same for a whole text.
std::string ValidUtf8(std::string_view text);

#endif
