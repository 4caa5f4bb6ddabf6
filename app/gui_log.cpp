#include "app/gui_log.h"

#include <gtk/gtk.h>

#include <string>
#include <type_traits>

#include "app/mainwindow.h"
#include "app/window_events.h"

namespace {

constexpr uint64_t kProgressPause = 50;  // milliseconds
constexpr int kKilobyte = 1024;

template <typename Count>
std::string progress_text(Count done, Count total) {
    using Shown = std::make_unsigned_t<Count>;
    const auto doneK = static_cast<Shown>(done / kKilobyte);
    const auto totalK = static_cast<Shown>(total / kKilobyte);
    const Shown percent = totalK != 0 ? static_cast<Shown>(doneK * 100 / totalK)
                                      : static_cast<Shown>(int64_t{done} * 100 / total);
    return std::to_string(doneK) + "/" + std::to_string(totalK) + "k [" + std::to_string(percent) +
           "%]";
}

// Moves what can be shown from `text` to the result. An incomplete character at the end stays until
// more bytes come.
std::string take_valid(std::string* text) {
    std::string shown;
    const char* at = text->data();
    const char* const end = at + text->size();
    while (at < end) {
        const char* valid;
        g_utf8_validate(at, end - at, &valid);
        shown.append(at, valid);
        at = valid;
        if (at == end || g_utf8_get_char_validated(at, end - at) == static_cast<gunichar>(-2)) {
            break;
        }
        shown += "\uFFFD";
        ++at;
    }
    text->erase(0, static_cast<size_t>(at - text->data()));
    return shown;
}

}  // namespace

void console_print(const char* text) {
    static std::string unshown;
    const std::string shown = take_valid(&unshown.append(text));

    GtkTextView* view = GTK_TEXT_VIEW(console);
    GtkTextBuffer* buffer = gtk_text_view_get_buffer(view);
    GtkTextMark* cursorMark = gtk_text_buffer_get_insert(buffer);
    GtkTextIter cursor, bound, end;
    gtk_text_buffer_get_end_iter(buffer, &end);
    gtk_text_buffer_get_iter_at_mark(buffer, &cursor, cursorMark);
    gtk_text_buffer_get_iter_at_mark(buffer, &bound, gtk_text_buffer_get_selection_bound(buffer));
    const int cursorAt = gtk_text_iter_get_offset(&cursor);
    const int boundAt = gtk_text_iter_get_offset(&bound);
    const bool selected = cursorAt != boundAt;
    // A click moved the cursor. Restore it only then: it costs a layout.
    if (!selected && !gtk_text_iter_is_end(&cursor)) gtk_text_buffer_place_cursor(buffer, &end);
    gtk_text_buffer_insert(buffer, &end, shown.data(), static_cast<int>(shown.size()));
    if (!selected) {
        gtk_text_view_scroll_mark_onscreen(view, cursorMark);
        return;
    }
    // A selection that reaches the end has grown with the text.
    gtk_text_buffer_get_iter_at_offset(buffer, &cursor, cursorAt);
    gtk_text_buffer_get_iter_at_offset(buffer, &bound, boundAt);
    gtk_text_buffer_select_range(buffer, &cursor, &bound);
}

void console_begin_line() {
    GtkTextIter end;
    gtk_text_buffer_get_end_iter(gtk_text_view_get_buffer(GTK_TEXT_VIEW(console)), &end);
    if (!gtk_text_iter_starts_line(&end)) console_print("\n");
}

void _Log::Print(const char* text) { console_print(text); }

void _Log::SetProgress(int32_t done, int32_t total) { Show(done, total); }

void _Log::SetLongProgress(int64_t done, int64_t total) { Show(done, total); }

template <typename Count>
void _Log::Show(Count done, Count total) {
    const uint64_t now = EventLoop::Now();
    if (now - m_lastProgress <= kProgressPause && done < total) return;
    GtkProgressBar* bar = GTK_PROGRESS_BAR(progress1);
    if (total != 0) gtk_progress_bar_set_text(bar, progress_text(done, total).c_str());
    // GTK knows no negative fraction.
    if (total > 0 && done >= 0 && done <= total) {
        gtk_progress_bar_set_fraction(bar, static_cast<double>(done) / static_cast<double>(total));
    }
    m_lastProgress = now;
    process_window_events();
}

void _Log::Finished(int32_t result) { m_finished(result); }

void _Log::SetStatus(const char* text) {
    GtkStatusbar* bar = GTK_STATUSBAR(progress2);
    gchar* shown = g_utf8_make_valid(text, -1);
    gtk_statusbar_pop(bar, kStatusContext);
    gtk_statusbar_push(bar, kStatusContext, shown);
    g_free(shown);
    process_window_events();
}
