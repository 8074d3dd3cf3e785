#include "tests/support/WireLog.h"

#include "control/rpc/JsonText.h"
#include "core/Mutex.h"

#include <unistd.h>

#include <cstdlib>
#include <fstream>

namespace testing_support {

namespace {
constexpr size_t kMaxPendingRequestBytes = 64 * 1024 * 1024;

const char* Directory()
{
    const char* directory = std::getenv("USBMEDIA_WIRE_LOG_DIR");
    return directory != nullptr && directory[0] != '\0' ? directory : nullptr;
}

// The process's log file, shared by all its clients (some tests read from
// several threads).
void Append(const Json::Value& record)
{
    struct SLogFile {
        CMutex mutex;  // guards the file and its owner
        std::ofstream file GUARDED_BY(mutex);
        pid_t owner GUARDED_BY(mutex) = 0;
    };
    static SLogFile log;
    const std::string text = Json::Rpc::ToWireText(record);
    const CLockGuard<CMutex> lock(log.mutex);
    if (log.owner != getpid()) {  // first use, or a forked child of the test
        log.owner = getpid();
        if (log.file.is_open()) {
            log.file.close();
        }
        const std::string name = "/wire-" + std::to_string(log.owner) + ".jsonl";
        log.file.open(std::string(Directory()) + name, std::ios::app);
    }
    log.file << text;
    if (text.empty() || text.back() != '\n') {
        log.file << '\n';
    }
    log.file.flush();
}

std::string IdKey(const Json::Value& id)
{
    return Json::Rpc::ToWireText(id);
}
}  // namespace

bool WireLog::Enabled()
{
    return Directory() != nullptr;
}

WireLog::WireLog() : m_sent(kMaxPendingRequestBytes)
{
}

void WireLog::Remember(const std::string& requestText)
{
    Json::Value request;
    if (!Json::Rpc::ParseJson(requestText, request)) {
        return;
    }
    const auto remember = [this](const Json::Value& one) {
        if (one.isObject() && one["method"].isString() && one.isMember("id") && !one["id"].isNull()) {
            m_methodById[IdKey(one["id"])] = one["method"].asString();
        }
    };
    if (request.isArray()) {
        for (const Json::Value& one : request) {
            remember(one);
        }
    } else {
        remember(request);
    }
}

void WireLog::Sent(const std::string& bytes)
{
    m_sent.Append(bytes.data(), bytes.size());
    std::string value;
    while (m_sent.Next(value)) {
        Remember(value);
    }
}

void WireLog::Received(const std::string& line)
{
    Json::Value message;
    const bool parsed = Json::Rpc::ParseJson(line, message);
    const auto record = [](const Json::Value& method, const std::string& text) {
        Json::Value entry(Json::objectValue);
        entry["method"] = method;
        entry["text"] = text;
        Append(entry);
    };
    const auto methodOf = [this](const Json::Value& reply) {
        if (!reply.isObject() || reply.isMember("method") || !reply.isMember("id")) {
            return Json::Value();
        }
        const auto found = m_methodById.find(IdKey(reply["id"]));
        if (found == m_methodById.end()) {
            return Json::Value();
        }
        Json::Value method = found->second;
        m_methodById.erase(found);
        return method;
    };
    if (parsed && message.isArray()) {
        // A batch: each reply is checked against its own request.
        for (const Json::Value& reply : message) {
            record(methodOf(reply), Json::Rpc::ToWireText(reply));
        }
        return;
    }
    record(parsed ? methodOf(message) : Json::Value(), line);
}

}  // namespace testing_support
