# Debian's changelog from CHANGELOG.md, whose releases are "## VERSION - YYYY-MM-DD" with "- " lines.
# Takes the maintainer as `contact`.
function end_change(    count, words, line, i) {
    count = split(change, words, " ")
    line = "  *"
    for (i = 1; i <= count; ++i) {
        if (length(line " " words[i]) > 80) { print line; line = "   " }
        line = line " " words[i]
    }
    if (count > 0) print line
    change = ""
}
function end_release() {
    end_change()
    if (day == "") return
    # Releases of one day stand in their order: the newest, which comes first, has the latest time.
    ("LC_ALL=C date -u -R -d '" day " 12:00 UTC " releases++ " minutes ago'") | getline stamp
    printf "\n -- %s  %s\n", contact, stamp
}
/^## / {
    end_release()
    printf "%shalcyrix (%s) bookworm; urgency=medium\n\n", day == "" ? "" : "\n", $2
    day = $4
}
/^- / { end_change(); change = substr($0, 3) }
/^  / { change = change " " $0 }
END { end_release() }
