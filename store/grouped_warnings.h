// Warnings, grouped by their fault.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

// Collects faults of names. Gives a line for each fault, with the first of its names.
class GroupedWarnings {
public:
    void Add(const std::string& fault, const std::string& name) { m_names[fault].push_back(name); }

    std::vector<std::string> Lines() const {
        constexpr size_t kNamed = 3;
        std::vector<std::string> lines;
        for (const auto& [fault, names] : m_names) {
            std::string line = fault + ": " + names.front();
            for (size_t i = 1; i < names.size() && i < kNamed; ++i) line += ", " + names[i];
            if (names.size() > kNamed) {
                line += " and " + std::to_string(names.size() - kNamed) + " more";
            }
            lines.push_back(line);
        }
        return lines;
    }

private:
    std::map<std::string, std::vector<std::string>> m_names;
};
