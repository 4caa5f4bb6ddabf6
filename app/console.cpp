#include "app/console.h"

#include <string>

#include "app/utf8_filter.h"
#include "app/widgets.h"

void console_print(const char* text) {
    static Utf8Filter filter;
    if (console == nullptr) return;
    const std::string shown = filter.Filter(text);
    GtkTextView* view = GTK_TEXT_VIEW(console);
    GtkTextBuffer* buffer = gtk_text_view_get_buffer(view);
    gtk_text_buffer_insert_at_cursor(buffer, shown.data(), static_cast<int>(shown.size()));
    gtk_text_view_scroll_mark_onscreen(view, gtk_text_buffer_get_insert(buffer));
}
