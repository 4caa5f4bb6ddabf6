// Messages in windows of their own.
#ifndef HALCYRIX_APP_MESSAGE_BOX_H
#define HALCYRIX_APP_MESSAGE_BOX_H

// Shows a text, which can be selected, with a Close button in a dialog and returns at once. The
// dialog is not modal, goes when the player closes it, and fits on the screen. Any bytes may be in
// the text.
void message_box(const char* text, const char* title);

#endif
