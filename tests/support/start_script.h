// A script that tells in the file "told" of its HOME how it was started, and ends with kScriptRan.
#ifndef HALCYRIX_TESTS_SUPPORT_START_SCRIPT_H
#define HALCYRIX_TESTS_SUPPORT_START_SCRIPT_H

#include <string>

constexpr int kScriptRan = 7;

// The signals are read without a child, for which the shell would change them.
constexpr char kStartScript[] =
    "#!/bin/sh\n"
    "{ echo \"$# $* $LD_LIBRARY_PATH\"\n"
    "while read -r name value; do case $name in SigBlk:|SigIgn:) echo $name $value;; esac\n"
    "done </proc/$$/status\n"
    "readlink /proc/$$/fd/* | grep -c socket; } >$HOME/told\n"
    "exit 7\n";

// What it tells when no signal is blocked or ignored and no socket was left to it.
inline std::string ScriptTells(const std::string& start) {
    return start + "\nSigBlk: 0000000000000000\nSigIgn: 0000000000000000\n0\n";
}

#endif
