// Warnings, grouped by their fault.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "lib/work_observer.h"

// Collects faults of names. Warns of each fault once, with the first of its names.
class GroupedWarnings {
public:
    void Add(const std::string& fault, const std::string& name) { m_names[fault].push_back(name); }

    void Tell(WorkObserver* observer) const {
        constexpr size_t kNamed = 3;
        for (const auto& [fault, names] : m_names) {
            std::string line = fault + ": " + names.front();
            for (size_t i = 1; i < names.size() && i < kNamed; ++i) line += ", " + names[i];
            if (names.size() > kNamed) {
                line += " and " + std::to_string(names.size() - kNamed) + " more";
            }
            observer->Warn(line);
        }
    }

private:
    std::map<std::string, std::vector<std::string>> m_names;
};
