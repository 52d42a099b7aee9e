#include "AudioFeeder/StatusServer.h"

#include "AudioFeeder/StateSnapshot.h"
#include "Platform/SystemError.h"
#include "ServiceProcess/Log.h"

namespace Orv {

namespace {

constexpr char kLogSource[] = "StatusServer";

std::string Answer(const char* status, const char* type, const std::string& body, bool withBody = true) {
    return std::string("HTTP/1.0 ") + status + "\r\nContent-Type: " + type +
           "\r\nContent-Length: " + std::to_string(body.size()) +
           "\r\nCache-Control: no-store\r\nConnection: close\r\n\r\n" + (withBody ? body : "");
}

std::string Refusal(const char* status, const char* text) {
    return Answer(status, "text/plain; charset=utf-8", std::string(text) + "\n");
}

// Takes the next word of the request's first line.
std::string TakeWord(std::string& line) {
    const auto end = line.find(' ');
    const std::string word = line.substr(0, end);
    line.erase(0, end == std::string::npos ? end : end + 1);
    return word;
}

void TellOutcome(const std::string& path, Platform::SystemError error) {
    if (error == 0) {
        ORV_LOG(Info) << "State is told on " << path;
    } else {
        ORV_LOG(Warn) << "State cannot be told on " << path << ": error " << error << ", "
                      << Platform::SystemErrorText(error);
    }
}

}  // namespace

StatusServer::StatusServer(const std::string& path)
    : server_(path, "status", &AnswerStatusRequest, [path](Platform::SystemError error) { TellOutcome(path, error); }) {
}

bool AnswerStatusRequest(const std::string& request, bool whole, std::string& answer) {
    const bool complete = request.find("\r\n\r\n") != std::string::npos || request.find("\n\n") != std::string::npos;
    if (!complete && !whole) return false;
    if (!complete) {
        answer = Refusal("400 Bad Request", "The request is too long or has no end.");
        return true;
    }
    std::string line = request.substr(0, request.find_first_of("\r\n"));
    const std::string method = TakeWord(line);
    std::string target = TakeWord(line);
    target = target.substr(0, target.find('?'));
    const bool head = method == "HEAD";
    if (method != "GET" && !head) {
        answer = Refusal("405 Method Not Allowed", "Only GET and HEAD are answered: nothing can be changed here.");
    } else if (target == "/status") {
        answer = Answer("200 OK", "application/json", WriteStateJson(TakeStateSnapshot()), !head);
    } else if (target == "/metrics") {
        answer =
            Answer("200 OK", "text/plain; version=0.0.4; charset=utf-8", WriteStateMetrics(TakeStateSnapshot()), !head);
    } else {
        answer = Refusal("404 Not Found", "There is /status and /metrics.");
    }
    return true;
}

}  // namespace Orv
