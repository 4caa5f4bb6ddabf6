// What the desktop knows the program's windows by.
#ifndef HALCYRIX_APP_DESKTOP_IDENTITY_H
#define HALCYRIX_APP_DESKTOP_IDENTITY_H

// The name of the installed program, its menu entry and its icon.
constexpr char kDesktopName[] = "halcyrix-updater";

// Gives the windows the class and the icon of the menu entry, whatever name the program was started
// under. Without an installed icon they have none. Call before gtk_init().
void identify_to_desktop();

#endif
