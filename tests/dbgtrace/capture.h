// What the tests of the diagnostics library share.
#pragma once

#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "dbgtrace.h"

namespace test {

// Takes the lines of diagnostics for the time of a scope.
class SinkCapture {
public:
    struct Record {
        std::string module;
        int level;
        std::string func;
        std::string file;
        int line;
        std::string text;
    };

    SinkCapture() { DbgTraceSetSink(take, this); }
    ~SinkCapture() { DbgTraceSetSink(nullptr, nullptr); }
    SinkCapture(const SinkCapture&) = delete;
    SinkCapture& operator=(const SinkCapture&) = delete;

    std::vector<std::string> texts() const {
        std::vector<std::string> all;
        for (const Record& record : records) all.push_back(record.text);
        return all;
    }

    std::vector<Record> records;

private:
    static void take(void* context, const dbgtrace_record_t* record) {
        static_cast<SinkCapture*>(context)->records.push_back(
            {record->module, record->level, record->func, record->file, record->line, record->text});
    }
};

// Takes standard error for the time of a scope, write by write: a packet socket keeps their bounds.
class StandardErrorCapture {
public:
    StandardErrorCapture() : saved_(dup(STDERR_FILENO)) {
        if (socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends_) != 0) throw std::runtime_error("cannot create a socket pair");
        dup2(ends_[0], STDERR_FILENO);
    }
    ~StandardErrorCapture() {
        dup2(saved_, STDERR_FILENO);
        close(saved_);
        close(ends_[0]);
        close(ends_[1]);
    }
    StandardErrorCapture(const StandardErrorCapture&) = delete;
    StandardErrorCapture& operator=(const StandardErrorCapture&) = delete;

    // The writes that arrived since the last call.
    std::vector<std::string> writes() {
        std::vector<std::string> all;
        std::string packet(65536, '\0');
        for (ssize_t length; (length = recv(ends_[1], packet.data(), packet.size(), MSG_DONTWAIT)) > 0;)
            all.push_back(packet.substr(0, static_cast<size_t>(length)));
        return all;
    }

private:
    int saved_;
    int ends_[2];
};

// An open module.
class Module {
public:
    explicit Module(const char* name = "TESTMODULE") { result = _DoDbgInit(name, &handle); }
    ~Module() { _DoDbgUninitEx(&handle, __func__, __FILE__, __LINE__); }
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;

    HDBG handle = nullptr;
    int result;
};

}  // namespace test
