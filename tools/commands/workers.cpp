#include "commands/workers.h"

#include <cstddef>

#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <new>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "transport/message_block.h"

namespace MD::tool {
namespace {

/// A block and what has been made of it.
struct Slot {
  MessageBlock block;
  bool isDone = false;
  std::string text;
  std::vector<KeptReport> reports;
  ExitStatus status = kDone;
  std::function<void()> after;
  std::exception_ptr error;
};

/// A worker with a task of its own, whose output and reports it keeps.
class Station {
 public:
  Station(const Task& task, const MakeWorker& makeWorker)
      : m_reporter(m_reports, m_out),
        m_source(m_reporter),
        m_task{m_source, task.selection, m_out, m_reporter, 1},
        m_worker(makeWorker(m_task)) {}

  Worker& worker() noexcept { return *m_worker; }

  /// What has been put out since the last call.
  void take(std::string& text) { m_out.takeComplete(text); }

  void workOn(Slot& slot) noexcept {
    try {
      m_source.begin(slot.block);
      slot.after = m_worker->run();
    } catch (...) {
      slot.error = std::current_exception();
    }
    m_out.takeComplete(slot.text);
    slot.reports.swap(m_reports);
    m_reports.clear();
    slot.status = m_reporter.status();
  }

 private:
  Output m_out;
  std::vector<KeptReport> m_reports;
  Reporter m_reporter;
  BlockSource m_source;
  Task m_task;
  std::unique_ptr<Worker> m_worker;
};

/// Hands blocks to threads and takes what has been made of them, in their order.
class Pool {
 public:
  Pool(const Task& task, const MakeWorker& makeWorker, std::string_view separator)
      : m_task(task), m_separator(separator) {
    for (unsigned i = 0; i != task.jobs; ++i) {
      m_stations.push_back(std::make_unique<Station>(task, makeWorker));
    }
    m_stations.front()->worker().begin();
    m_stations.front()->take(task.out.text());
    task.out.lineDone();
    m_task.reporter.setBeforeReport([this] {
      if (!m_isReplaying) {
        finishAll();
      }
    });
    try {
      for (const auto& station : m_stations) {
        m_threads.emplace_back([this, &station = *station] { work(station); });
      }
    } catch (...) {
      stop();
      throw;
    }
  }
  ~Pool() { stop(); }
  Pool(const Pool&) = delete;
  Pool& operator=(const Pool&) = delete;

  void run() {
    for (;;) {
      InputMessage message;
      try {
        if (!m_task.messages.next(message)) {
          break;
        }
        blockOfInput().add(message, m_task.reporter.at());
      } catch (const LineError& error) {
        blockOfInput().add(error, m_task.reporter.at());
      } catch (const std::bad_alloc&) {
        blockOfInput().add(outOfMemory(), m_task.reporter.at());
      } catch (...) {
        finishAll();
        throw;
      }
      if (m_open->block.isFull()) {
        submit();
      }
    }
    finishAll();
    stop();
    for (const auto& station : m_stations) {
      station->worker().end();
    }
  }

 private:
  /// The block that the next message goes into.
  MessageBlock& blockOfInput() {
    const std::string& input = m_task.reporter.input();
    if (m_open != nullptr && m_open->block.input() != input) {
      submit();
    }
    if (m_open == nullptr) {
      const std::size_t most = 2 * std::size_t{m_task.jobs} + 2;
      while (m_running.size() >= most) {
        finishFirst();
      }
      if (m_idle.empty()) {
        m_idle.push_back(std::make_unique<Slot>());
      }
      m_open = std::move(m_idle.back());
      m_idle.pop_back();
      m_open->block.begin(input);
    }
    return m_open->block;
  }

  void submit() {
    m_open->isDone = false;
    {
      const std::lock_guard lock(m_mutex);
      m_waiting.push_back(m_open.get());
    }
    m_running.push_back(std::move(m_open));
    m_hasWork.notify_one();
  }

  void finishAll() {
    if (m_open != nullptr) {
      submit();
    }
    while (!m_running.empty()) {
      finishFirst();
    }
  }

  /// Waits for the first block that is out and puts out what has been made of it.
  void finishFirst() {
    std::unique_ptr<Slot> slot = std::move(m_running.front());
    m_running.pop_front();
    {
      std::unique_lock lock(m_mutex);
      m_isDone.wait(lock, [&] { return slot->isDone; });
    }
    const Place place = m_task.reporter.at();
    m_isReplaying = true;
    std::size_t written = 0;
    for (const KeptReport& report : slot->reports) {
      putOut(*slot, written, report.outputBytes);
      m_task.reporter.replay(report);
    }
    putOut(*slot, written, slot->text.size());
    m_task.reporter.raise(slot->status);
    if (slot->after) {
      std::exchange(slot->after, {})();
    }
    if (slot->error != nullptr) {
      std::rethrow_exception(slot->error);
    }
    slot->reports.clear();
    m_task.reporter.setPlace(place);
    m_isReplaying = false;
    m_idle.push_back(std::move(slot));
  }

  void putOut(Slot& slot, std::size_t& written, std::size_t end) {
    if (written == end) {
      return;
    }
    std::string& text = m_task.out.text();
    if (written == 0 && std::exchange(m_hasOutput, true)) {
      text += m_separator;
    }
    if (text.empty() && written == 0 && end == slot.text.size()) {
      text.swap(slot.text);
    } else {
      text.append(slot.text, written, end - written);
    }
    m_task.out.lineDone();
    written = end;
  }

  void work(Station& station) {
    std::unique_lock lock(m_mutex);
    for (;;) {
      m_hasWork.wait(lock, [this] { return m_isEnding || !m_waiting.empty(); });
      if (m_isEnding) {
        return;
      }
      Slot& slot = *m_waiting.front();
      m_waiting.pop_front();
      lock.unlock();
      station.workOn(slot);
      lock.lock();
      slot.isDone = true;
      m_isDone.notify_one();
    }
  }

  void stop() noexcept {
    m_task.reporter.setBeforeReport({});
    {
      const std::lock_guard lock(m_mutex);
      m_isEnding = true;
    }
    m_hasWork.notify_all();
    for (std::thread& thread : m_threads) {
      thread.join();
    }
    m_threads.clear();
  }

  const Task& m_task;
  std::string_view m_separator;
  std::vector<std::unique_ptr<Station>> m_stations;
  std::vector<std::thread> m_threads;
  std::mutex m_mutex;
  std::condition_variable m_hasWork;
  std::condition_variable m_isDone;
  bool m_isEnding = false;                      // under the mutex
  std::deque<Slot*> m_waiting;                  // under the mutex; each is in m_running, too
  std::deque<std::unique_ptr<Slot>> m_running;  // in their order
  std::unique_ptr<Slot> m_open;                 // being filled
  std::vector<std::unique_ptr<Slot>> m_idle;
  bool m_hasOutput = false;
  bool m_isReplaying = false;
};

}  // namespace

void runWorkers(const Task& task, const MakeWorker& makeWorker, std::string_view separator) {
  if (task.jobs > 1) {
    Pool(task, makeWorker, separator).run();
    return;
  }
  const std::unique_ptr<Worker> worker = makeWorker(task);
  worker->begin();
  if (const std::function<void()> after = worker->run()) {
    after();
  }
  worker->end();
}

}  // namespace MD::tool
