#include "serve/metrics.h"

#include <cstdio>
#include <map>

namespace {

// "name{label="value",...}" from names and values by turns; values may hold anything.
std::string Labelled(std::string name, std::initializer_list<std::string> labels) {
    char separator = '{';
    for (auto label = labels.begin(); label != labels.end(); label += 2) {
        name += separator + label[0] + "=\"";
        for (const char c : label[1]) {
            if (c == '"' || c == '\\') name += '\\';
            name += c;
        }
        name += '"';
        separator = ',';
    }
    return name + '}';
}

class Page {
public:
    // Begins a metric.
    void Metric(const char* name, const char* type, const char* help) {
        text += std::string("# HELP ") + name + " " + help + "\n# TYPE " + name + " " + type + "\n";
    }
    void Sample(const std::string& name, double value) {
        char number[40];
        snprintf(number, sizeof number, " %.15g\n", value);
        text += name + number;
    }
    void Single(const char* name, const char* type, const char* help, double value) {
        Metric(name, type, help);
        Sample(name, value);
    }

    std::string text;
};

void AddReleases(const Store& store, Page* page) {
    page->Single("halcyrix_releases", "gauge", "Good releases in the store.",
                 static_cast<double>(store.Releases().size()));
    page->Single("halcyrix_damaged_releases", "gauge",
                 "Releases in the store that are damaged and passed over.",
                 static_cast<double>(store.Damaged().size()));
    std::map<std::string, std::string> served;  // version by component
    for (const auto& release : store.Releases()) {
        for (const std::string& component : release->Components()) {
            served[component] = release->Version();
        }
    }
    page->Metric("halcyrix_served_release_info", "gauge",
                 "The version of each component that players are given.");
    for (const auto& [component, version] : served) {
        page->Sample(
            Labelled("halcyrix_served_release_info", {"component", component, "version", version}),
            1);
    }
}

void AddWaits(const ServerCounts& counts, Page* page) {
    const std::string name = "halcyrix_wait_seconds";
    page->Metric(name.c_str(), "histogram", "How long clients have waited for their slot.");
    for (size_t i = 0; i < counts.waitBuckets.size(); ++i) {
        const std::string end = std::to_string(ServerCounts::kWaitBuckets[i]);
        page->Sample(Labelled(name + "_bucket", {"le", end}),
                     static_cast<double>(counts.waitBuckets[i]));
    }
    page->Sample(Labelled(name + "_bucket", {"le", "+Inf"}), static_cast<double>(counts.waits));
    page->Sample(name + "_sum", counts.waitSeconds);
    page->Sample(name + "_count", static_cast<double>(counts.waits));
}

}  // namespace

void ServerCounts::CountWait(std::chrono::duration<double> wait) {
    const double seconds = wait.count();
    ++waits;
    waitSeconds += seconds;
    for (size_t i = 0; i < kWaitBuckets.size(); ++i) {
        if (seconds <= kWaitBuckets[i]) ++waitBuckets[i];
    }
}

std::string FormatMetrics(const ServerCounts& counts, const Store& store) {
    Page page;
    page.Metric("halcyrix_sessions", "gauge", "Clients that are connected, by state.");
    for (int state = 0; state < kClientStates; ++state) {
        page.Sample(Labelled("halcyrix_sessions", {"state", kStateLabels[state]}),
                    static_cast<double>(counts.sessions[state]));
    }
    page.Single("halcyrix_sessions_limit", "gauge", "How many clients can be connected.",
                static_cast<double>(counts.sessionLimit));
    page.Single("halcyrix_slots", "gauge", "How many clients can download at a time.",
                static_cast<double>(counts.slots));
    page.Metric("halcyrix_sessions_ended_total", "counter", "Sessions that are over, by cause.");
    for (int ending = COMPLETED; ending < kEndings; ++ending) {
        page.Sample(
            Labelled("halcyrix_sessions_ended_total", {"cause", kEndingWords[ending].label}),
            static_cast<double>(counts.ended[ending]));
    }
    page.Single("halcyrix_sent_bytes_total", "counter", "Bytes sent to clients.",
                static_cast<double>(counts.sentBytes));
    page.Single("halcyrix_read_errors_total", "counter",
                "Reads of the store or of the message of the day that failed.",
                static_cast<double>(counts.readErrors));
    AddWaits(counts, &page);
    AddReleases(store, &page);
    return page.text;
}
