#include "app/widgets.h"

namespace {

constexpr int kButtonSpacing = 30;
constexpr int kTextMargin = 3;
constexpr int kWindowFrame = 40;  // title bar and borders, in pixels

// In dots per inch, of which a point is the 72nd part.
constexpr double kDefaultResolution = 96;
constexpr double kLeastResolution = 36;
constexpr double kResolutionStep = 4;

GtkWidget* parent_of(GtkWidget* widget) {
    GtkWidget* parent = GTK_IS_MENU(widget) ? gtk_menu_get_attach_widget(GTK_MENU(widget))
                                            : gtk_widget_get_parent(widget);
    if (parent != nullptr) return parent;
    return static_cast<GtkWidget*>(g_object_get_data(G_OBJECT(widget), "GladeParentKey"));
}

void release_widget(gpointer widget) { gtk_widget_unref(static_cast<GtkWidget*>(widget)); }

// A text view asks for the width of its longest line. A word of some thousand letters would make
// the window larger than the display can hold, and end the program.
void ask_for_no_width(GtkWidget*, GtkRequisition* asked, gpointer) { asked->width = 1; }

}  // namespace

GtkWidget* lookup_widget(GtkWidget* widget, const char* name) {
    while (GtkWidget* parent = parent_of(widget)) widget = parent;
    auto* found = static_cast<GtkWidget*>(g_object_get_data(G_OBJECT(widget), name));
    if (found == nullptr) g_log(G_LOG_DOMAIN, G_LOG_LEVEL_WARNING, "Widget not found: %s", name);
    return found;
}

GtkWidget* named(GtkWidget* window, const char* name, GtkWidget* widget) {
    g_object_set_data_full(G_OBJECT(window), name, gtk_widget_ref(widget), release_widget);
    gtk_widget_show(widget);
    return widget;
}

void name_for_readers(GtkWidget* widget, const char* name) {
    atk_object_set_name(gtk_widget_get_accessible(widget), name);
}

GtkRequisition text_size(GtkWidget* widget, const char* text) {
    gtk_widget_ensure_style(widget);
    PangoLayout* layout = gtk_widget_create_pango_layout(widget, text);
    GtkRequisition size;
    pango_layout_get_pixel_size(layout, &size.width, &size.height);
    g_object_unref(layout);
    return size;
}

GtkRequisition largest_window() { return {gdk_screen_width(), gdk_screen_height() - kWindowFrame}; }

void fit_font(GtkWidget* window) {
    const GtkRequisition most = largest_window();
    double resolution = gdk_screen_get_resolution(gdk_screen_get_default());
    if (resolution < 0) resolution = kDefaultResolution;
    while (resolution >= kLeastResolution) {
        GtkRequisition asked;
        gtk_widget_size_request(window, &asked);
        if (asked.width <= most.width && asked.height <= most.height) return;
        resolution -= kResolutionStep;
        const int scaled = static_cast<int>(resolution * PANGO_SCALE);
        g_object_set(gtk_settings_get_default(), "gtk-xft-dpi", scaled, nullptr);
    }
}

GtkWidget* new_window(const char* name, const char* title) {
    GtkWidget* window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    g_object_set_data(G_OBJECT(window), name, window);  // a reference to itself would keep it
    gtk_window_set_title(GTK_WINDOW(window), title);
    return window;
}

GtkWidget* new_scrolled_window(GtkWidget* window, const char* name) {
    GtkWidget* scrolled = named(window, name, gtk_scrolled_window_new(nullptr, nullptr));
    gtk_widget_set_can_focus(scrolled, FALSE);
    gtk_scrolled_window_set_policy(GTK_SCROLLED_WINDOW(scrolled), GTK_POLICY_NEVER,
                                   GTK_POLICY_ALWAYS);
    gtk_scrolled_window_set_shadow_type(GTK_SCROLLED_WINDOW(scrolled), GTK_SHADOW_IN);
    return scrolled;
}

GtkWidget* new_text_view(GtkWidget* window, const char* name, GtkWidget* scrolledWindow) {
    GtkWidget* view = named(window, name, gtk_text_view_new());
    gtk_container_add(GTK_CONTAINER(scrolledWindow), view);
    gtk_text_view_set_wrap_mode(GTK_TEXT_VIEW(view), GTK_WRAP_WORD);
    gtk_text_view_set_accepts_tab(GTK_TEXT_VIEW(view), FALSE);
    gtk_text_view_set_left_margin(GTK_TEXT_VIEW(view), kTextMargin);
    gtk_text_view_set_right_margin(GTK_TEXT_VIEW(view), kTextMargin);
    g_signal_connect(view, "size-request", G_CALLBACK(ask_for_no_width), nullptr);
    return view;
}

GtkWidget* new_button_box(GtkWidget* window, const char* name) {
    GtkWidget* box = named(window, name, gtk_hbutton_box_new());
    gtk_button_box_set_layout(GTK_BUTTON_BOX(box), GTK_BUTTONBOX_SPREAD);
    gtk_box_set_spacing(GTK_BOX(box), kButtonSpacing);
    return box;
}

GtkWidget* new_button(GtkWidget* window, const char* name, GtkWidget* box, const char* label) {
    GtkWidget* button = named(window, name, gtk_button_new_with_mnemonic(label));
    gtk_container_add(GTK_CONTAINER(box), button);
    gtk_widget_set_can_default(button, TRUE);
    return button;
}
