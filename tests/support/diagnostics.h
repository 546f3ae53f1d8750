// A diagnostics library for the tests: it implements dbgtrace.h and keeps what it is given.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "dbgtrace.h"

namespace test {

struct Message {
    int level;
    std::string func;
    std::string file;
    int line;
    std::string text;   // as formatted, with its closing line feed
    std::size_t order;  // place among all that was recorded, assertions and dumps included
};

struct Dump {
    int level;
    std::string label;
    std::string func;
    std::string file;
    int line;
    std::vector<unsigned char> bytes;
    std::size_t order;
};

struct Assertion {
    std::string expression;
    std::string func;
    std::string file;
    int line;
    bool with_caller;  // reported through _DoAssertEx
    std::string caller_func;
    std::string caller_file;
    int caller_line;
    std::size_t order;
};

struct Copy {  // a call of CopyString
    std::string source;
    std::size_t capacity;
};

// Everything recorded since reset(), in order of arrival within each list. One set for the process.
struct Records {
    std::vector<Message> messages;
    std::vector<Dump> dumps;
    std::vector<Assertion> assertions;
    std::vector<Copy> copies;
    int inits = 0;
    int uninits = 0;
    int not_allowed = 0;  // messages and dumps with another handle than _DoDbgInit gave or above its nMaxLevel
};
Records& records();

// Forgets what was recorded.
void clear();
// The same, and sets the highest level that the library emits.
void reset(int level);
void set_level(int level);

// Texts of the messages of one level, without their line feeds.
std::vector<std::string> texts(int level);
// Texts of all messages with their function: "parse_sps: Called."
std::vector<std::string> texts_with_function(int level);
// The message with this text (without line feed); null when there is none.
const Message* find(const std::string& text);
// How many messages have this text.
int count(const std::string& text);
// Expressions of the failed assertions, in order.
std::vector<std::string> assertions();

// Takes the handle away for the time of a scope: the library is silent.
class WithoutHandle {
public:
    WithoutHandle();
    ~WithoutHandle();
    WithoutHandle(const WithoutHandle&) = delete;
    WithoutHandle& operator=(const WithoutHandle&) = delete;

private:
    HDBG saved_;
};

}  // namespace test
