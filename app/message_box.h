// Messages to the player in dialogs.
#pragma once

// Shows a text in a dialog with a Close button and returns at once. The dialog is not modal and
// fits on the screen; its text can be selected. Invalid bytes show as U+FFFD.
void message_box(const char* text, const char* title);
