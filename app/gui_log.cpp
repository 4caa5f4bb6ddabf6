#include "app/gui_log.h"

#include <cstdio>
#include <cstdlib>
#include <string>

#include "app/console.h"
#include "app/quit.h"
#include "app/updater.h"
#include "app/updater_copy.h"
#include "app/utf8_filter.h"
#include "app/widgets.h"

namespace {

constexpr uint64_t kProgressPause = 50;  // milliseconds
constexpr int32_t kKilobyte = 1024;

bool may_process_events() {
    return gtk_events_pending() && !input_pending && !quit_requested();
}

uint32_t percentage(int32_t done, int32_t total) {
    const auto doneK = static_cast<uint32_t>(done / kKilobyte);
    const auto totalK = static_cast<uint32_t>(total / kKilobyte);
    if (totalK != 0) return doneK * 100 / totalK;
    return static_cast<uint32_t>(int64_t{done} * 100 / total);
}

void show_progress(GtkProgressBar* bar, int32_t done, int32_t total) {
    if (total != 0) {
        char text[64];
        snprintf(text, sizeof text, "%u/%uk [%u%%]", static_cast<uint32_t>(done / kKilobyte),
                 static_cast<uint32_t>(total / kKilobyte), percentage(done, total));
        gtk_progress_bar_set_text(bar, text);
    }
    // GTK knows no negative fraction.
    if (total > 0 && done >= 0 && done <= total) {
        gtk_progress_bar_set_fraction(bar, static_cast<double>(done) / total);
    }
}

}  // namespace

void _Log::Print(const char* text) {
    console_print(text);
}

void _Log::SetProgress(int32_t done, int32_t total) {
    const uint64_t now = EventLoop::Now();
    if (now - m_lastProgress <= kProgressPause && done < total) return;
    if (progress1 != nullptr) show_progress(GTK_PROGRESS_BAR(progress1), done, total);
    m_lastProgress = now;
    process_window_events();
}

void _Log::Finished(int32_t result) {
    if (quit_requested()) return;
    if (!self_update_pending) {
        if (start_button != nullptr) gtk_widget_set_sensitive(start_button, TRUE);
        if (help_button != nullptr) gtk_widget_set_sensitive(help_button, TRUE);
        return;
    }
    self_update_pending = false;
    if (result != 0) {
        StartUpdaterCopy(std::string("./") + kUpdaterCopyName, "-phase2");
        exit(0);
    }
    start_session(0);
}

void _Log::SetStatus(const char* text) {
    if (progress2 != nullptr) {
        GtkStatusbar* bar = GTK_STATUSBAR(progress2);
        gtk_statusbar_pop(bar, kStatusContext);
        gtk_statusbar_push(bar, kStatusContext, ValidUtf8(text).c_str());
    }
    while (may_process_events()) gtk_main_iteration();
}

void process_window_events() {
    while (may_process_events()) gtk_main_iteration_do(FALSE);
}
