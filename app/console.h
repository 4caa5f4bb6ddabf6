// The console of the main window.
#ifndef HALCYRIX_APP_CONSOLE_H
#define HALCYRIX_APP_CONSOLE_H

// Inserts the text at the console's cursor and keeps that place in view. Takes any bytes: a UTF-8
// character may be cut in two by two calls, and invalid bytes show as U+FFFD. Does nothing once the
// console is gone.
void console_print(const char* text);

#endif
