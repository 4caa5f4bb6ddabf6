#include "serve/metrics.h"

#include <map>

namespace {

class Page {
public:
    // Begins a metric.
    void Metric(const char* name, const char* type, const char* help) {
        m_name = name;
        text += "# HELP " + m_name + " " + help + "\n# TYPE " + m_name + " " + type + "\n";
    }
    // Of the metric that was begun last: names and values of labels by turns; values may hold
    // anything.
    template <class Number>
    void Sample(Number value, std::initializer_list<std::string> labels = {},
                const char* suffix = "") {
        text += m_name + suffix;
        char separator = '{';
        for (auto label = labels.begin(); label != labels.end(); label += 2) {
            text += separator + label[0] + "=\"";
            for (const char c : label[1]) {
                if (c == '"' || c == '\\' || c == '\n') text += '\\';
                text += c == '\n' ? 'n' : c;
            }
            text += '"';
            separator = ',';
        }
        text += (separator == '{' ? " " : "} ") + std::to_string(value) + "\n";
    }
    void Single(const char* name, const char* type, const char* help, uint64_t value) {
        Metric(name, type, help);
        Sample(value);
    }

    std::string text;

private:
    std::string m_name;
};

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
    page.Single("process_start_time_seconds", "gauge", "When the server started, in Unix time.",
                static_cast<uint64_t>(counts.started));
    page.Metric("halcyrix_sessions", "gauge", "Clients that are connected, by state.");
    for (int state = 0; state < kClientStates; ++state) {
        page.Sample(counts.sessions[state], {"state", kStateLabels[state]});
    }
    page.Single("halcyrix_sessions_limit", "gauge", "How many clients can be connected.",
                counts.sessionLimit);
    page.Single("halcyrix_slots", "gauge", "How many clients can download at a time.",
                counts.slots);
    page.Metric("halcyrix_sessions_ended_total", "counter", "Sessions that are over, by cause.");
    for (int ending = COMPLETED; ending < kEndings; ++ending) {
        page.Sample(counts.ended[ending], {"cause", kEndingWords[ending].label});
    }
    page.Single("halcyrix_sent_bytes_total", "counter", "Bytes sent to clients.", counts.sentBytes);
    page.Single("halcyrix_read_errors_total", "counter",
                "Reads of the store or of the message of the day that failed.", counts.readErrors);
    page.Metric("halcyrix_wait_seconds", "histogram", "How long clients have waited for a slot.");
    for (size_t i = 0; i < counts.waitBuckets.size(); ++i) {
        const std::string end = std::to_string(ServerCounts::kWaitBuckets[i]);
        page.Sample(counts.waitBuckets[i], {"le", end}, "_bucket");
    }
    page.Sample(counts.waits, {"le", "+Inf"}, "_bucket");
    page.Sample(counts.waitSeconds, {}, "_sum");
    page.Sample(counts.waits, {}, "_count");
    page.Single("halcyrix_releases", "gauge", "Good releases in the store.",
                store.Releases().size());
    page.Single("halcyrix_damaged_releases", "gauge",
                "Releases in the store that are damaged and passed over.", store.Damaged().size());
    page.Metric("halcyrix_damaged_release_info", "gauge", "What is wrong with each of those.");
    for (const auto& [sequence, damaged] : store.Damaged()) {
        page.Sample(1, {"release", SequenceName(sequence), "reason", damaged.reason});
    }
    std::map<std::string, std::string> served;  // version by component
    for (const auto& release : store.Releases()) {
        for (const std::string& component : release->Components()) {
            served[component] = release->Version();
        }
    }
    page.Metric("halcyrix_served_release_info", "gauge",
                "The version of each component that players are given.");
    for (const auto& [component, version] : served) {
        page.Sample(1, {"component", component, "version", version});
    }
    return page.text;
}
