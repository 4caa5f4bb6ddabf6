// How functions tell that they have failed, and why.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>

// Becomes what a function returns that has failed: false, null or nothing.
struct Failure {
    operator bool() const { return false; }
    template <class T, class D>
    operator std::unique_ptr<T, D>() const {
        return nullptr;
    }
    template <class T>
    operator std::shared_ptr<T>() const {
        return nullptr;
    }
    template <class T>
    operator std::optional<T>() const {
        return std::nullopt;
    }
};

// Sets the reason. The caller returns the result.
[[nodiscard]] inline Failure Fail(std::string* error, std::string reason) {
    *error = std::move(reason);
    return {};
}

// "path: what went wrong", from errno.
std::string SystemError(const std::string& path);
