// A line of text of any length.
#pragma once

#include <algorithm>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "dbgtrace.h"

namespace dbgtrace {

// Held on the stack while it is short and on the heap when it is not; cut where memory runs out. Room for a closing
// line feed is always left.
class Line {
public:
    Line() = default;
    ~Line() {
        if (text_ != short_text_) std::free(text_);
    }
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;

    void append(const char* format, ...) DBGTRACE_PRINTF(2, 3) {
        va_list arguments;
        va_start(arguments, format);
        append_list(format, arguments);
        va_end(arguments);
    }

    void append_list(const char* format, va_list arguments) DBGTRACE_PRINTF(2, 0) {
        va_list again;
        va_copy(again, arguments);
        const int result = std::vsnprintf(text_ + length_, capacity_ - length_, format, arguments);
        if (result < 0) {
            text_[length_] = '\0';
            append("%s", format);
        } else {
            const auto added = static_cast<std::size_t>(result);
            if (added >= capacity_ - length_ && grow(added)) {
                std::vsnprintf(text_ + length_, capacity_ - length_, format, again);
            }
            length_ += std::min(added, capacity_ - length_ - 1);
        }
        va_end(again);
    }

    void drop_line_feed() {
        if (length_ > 0 && text_[length_ - 1] == '\n') text_[--length_] = '\0';
    }

    void add_line_feed() {
        text_[length_++] = '\n';
        text_[length_] = '\0';
    }

    const char* text() const { return text_; }
    std::size_t length() const { return length_; }

private:
    bool grow(std::size_t added) {
        const std::size_t capacity = length_ + added + 1;
        auto* text = static_cast<char*>(std::malloc(capacity + 1));
        if (text == nullptr) return false;
        std::memcpy(text, text_, length_ + 1);
        if (text_ != short_text_) std::free(text_);
        text_ = text;
        capacity_ = capacity;
        return true;
    }

    char short_text_[1024] = "";
    char* text_ = short_text_;
    std::size_t length_ = 0;
    std::size_t capacity_ = sizeof short_text_ - 1;  // with the closing zero byte, without the line feed
};

}  // namespace dbgtrace
