#pragma once

#include <csignal>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <QtCore/QDeadlineTimer>
#include <QtCore/QProcess>
#include <sys/prctl.h>
#include <unistd.h>

namespace marigold::test {

/// A real child process with its output read line by line. It is asked to end when this is
/// destroyed, with the children it has by then, or when the test dies.
class ChildProcess {
 public:
  explicit ChildProcess(const std::vector<std::string>& words,
                        const std::map<std::string, std::string>& environment = {}) {
    QProcessEnvironment settings;
    for (const auto& [name, value] : environment) {
      settings.insert(QString::fromStdString(name), QString::fromStdString(value));
    }
    process_.setProcessEnvironment(settings);
    process_.setStandardInputFile(QProcess::nullDevice());
    process_.setChildProcessModifier([] {
      ::setpgid(0, 0);
      ::prctl(PR_SET_PDEATHSIG, SIGTERM);
      // It must not keep open what the test was started with: a lock, a pipe that somebody reads.
      ::close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
    });
    QStringList arguments;
    for (const std::string& word : words) {
      arguments.append(QString::fromStdString(word));
    }
    const QString program = arguments.takeFirst();
    process_.start(program, arguments);
    if (!process_.waitForStarted()) {
      throw std::runtime_error("cannot start " + words.front());
    }
    group_ = id();
  }
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  ~ChildProcess() {
    ::kill(-group_, SIGTERM);
    process_.waitForFinished(5000);
    ::kill(-group_, SIGKILL);
    process_.waitForFinished();
  }

  /// The next line of standard output that holds `part`; lines before it are skipped. Nothing when
  /// none comes within `seconds` or the output ends.
  std::optional<std::string> outputLine(std::string_view part, double seconds = 20) {
    return line(QProcess::StandardOutput, part, seconds);
  }
  std::optional<std::string> errorLine(std::string_view part, double seconds = 20) {
    return line(QProcess::StandardError, part, seconds);
  }
  [[nodiscard]] pid_t id() const { return static_cast<pid_t>(process_.processId()); }
  /// Sends `signal`.
  void tell(int signal) const { ::kill(id(), signal); }
  /// The rest of standard output and the exit status: minus the number of the signal that ended it,
  /// -1000 when it did not end in time.
  std::pair<std::string, int> finish(double seconds = 20) {
    const bool ended = process_.state() == QProcess::NotRunning ||
                       process_.waitForFinished(static_cast<int>(seconds * 1000));
    const bool killed = process_.exitStatus() == QProcess::CrashExit;
    const int status = killed ? -process_.exitCode() : process_.exitCode();
    return {process_.readAllStandardOutput().toStdString(), ended ? status : -1000};
  }
  /// Asks it to end; its exit status, with what it last said when that is not 0.
  std::string end(int signal = SIGTERM) {
    tell(signal);
    const int status = finish().second;
    return std::to_string(status) +
           (status == 0 ? "" : "\n" + process_.readAllStandardError().toStdString());
  }

 private:
  std::optional<std::string> line(QProcess::ProcessChannel stream, std::string_view part,
                                  double seconds) {
    const QDeadlineTimer deadline(static_cast<qint64>(seconds * 1000));
    process_.setReadChannel(stream);
    for (bool more = true; more;
         more = process_.waitForReadyRead(static_cast<int>(deadline.remainingTime()))) {
      while (process_.canReadLine()) {
        std::string found = process_.readLine().chopped(1).toStdString();
        if (found.find(part) != std::string::npos) {
          return found;
        }
      }
    }
    return std::nullopt;
  }

  QProcess process_;
  pid_t group_ = -1;  // its own
};

}  // namespace marigold::test
