// The states of a session, and the causes that end one.
#pragma once

enum ClientState {
    CONNECTED,    // nothing has been said
    GREETED,      // names components; the version request comes next
    LISTING,      // is sent the file list
    NEGOTIATING,  // checks its files and asks for some
    WAITING,      // for a slot
    READY,        // has a slot; the download start comes next
    DOWNLOADING,
    SERVED,  // everything has been sent; the client hangs up next
    kClientStates,
};

// As the metrics call them.
inline constexpr const char* kStateLabels[kClientStates] = {
    "connected", "greeted", "listing", "negotiating", "waiting", "ready", "downloading", "served"};

enum Ending {
    GOES_ON,
    COMPLETED,
    BROKE_OFF,
    BROKE_PROTOCOL,
    TOO_SLOW,
    VANISHED,
    NOT_PUBLISHED,
    UNREADABLE,
    LET_GO,
    NEVER_GREETED,
    REFUSED,
    OVER_SHARE,
    NO_PROXY_HEADER,
    kEndings,
};

struct EndingWords {
    const char* label;  // in the metrics
    const char* text;   // in the log
};
inline constexpr EndingWords kEndingWords[kEndings] = {
    {"", ""},
    {"completed", ""},
    {"broke_off", "hung up early"},
    {"broke_protocol", "broke the protocol"},
    {"too_slow", "too slow"},
    {"vanished", "acknowledges nothing any more"},
    {"not_published", "asked for a component that is not published"},
    {"unreadable", "cannot read a file as it was published"},
    {"let_go", "the server stops"},
    {"never_greeted", "never greeted"},
    {"refused", "refused"},
    {"over_share", "its address has its share"},
    {"no_proxy_header", "no PROXY header"},
};
