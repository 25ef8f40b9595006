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

#include "transport/frame_cursor.h"
#include "transport/message_block.h"

namespace MD::tool {
namespace {

/// A block and what has been made of it.
struct Slot {
  MessageBlock block;
  bool isDone = false;  // under a mutex of its own, as it is set in nobody's turn
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

/// Each thread in turn puts out the blocks that are done, reads the next one and works on it: bytes stay in the caches
/// of one processor from reading to output.
class Pool {
 public:
  Pool(const Task& task, const MakeWorker& makeWorker, std::string_view separator)
      : m_task(task), m_makeWorker(makeWorker), m_separator(separator), m_stations(task.jobs) {
    m_stations.front() = std::make_unique<Station>(task, makeWorker);
    m_stations.front()->worker().begin();
    m_stations.front()->take(task.out.text());
    task.out.lineDone();
    m_task.reporter.setBeforeReport([this] {
      if (!m_isReplaying) {
        finishAll();
      }
    });
  }
  ~Pool() { m_task.reporter.setBeforeReport({}); }
  Pool(const Pool&) = delete;
  Pool& operator=(const Pool&) = delete;

  void run() {
    std::vector<std::thread> threads;
    try {
      for (std::size_t i = 1; i != m_stations.size(); ++i) {
        threads.emplace_back([this, i] { work(m_stations[i]); });
      }
      work(m_stations.front());
    } catch (...) {
      end(std::current_exception());
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
    if (m_error != nullptr) {
      std::rethrow_exception(m_error);
    }
    finishAll();
    for (const auto& station : m_stations) {
      if (station != nullptr) {
        station->worker().end();
      }
    }
  }

 private:
  /// @param station  is made by its thread where it is null, of memory that no other thread writes next to
  void work(std::unique_ptr<Station>& station) {
    std::unique_lock turn(m_turn);
    while (!m_isEnding) {
      Slot* slot = nullptr;
      try {
        if (station == nullptr) {
          station = std::make_unique<Station>(m_task, m_makeWorker);
        }
        m_station = station.get();
        read();
        slot = m_open != nullptr ? &submit() : nullptr;
      } catch (...) {
        m_isEnding = true;
        m_error = std::current_exception();
        return;
      }
      if (slot != nullptr) {
        turn.unlock();
        workOn(*slot, *station);
        turn.lock();
      }
    }
  }

  void end(const std::exception_ptr& error) {
    const std::lock_guard turn(m_turn);
    m_isEnding = true;
    m_error = m_error != nullptr ? m_error : error;
  }

  void workOn(Slot& slot, Station& station) {
    station.workOn(slot);
    {
      const std::lock_guard lock(m_mutex);
      slot.isDone = true;
    }
    m_isDone.notify_one();
  }

  /// Puts out what is done, and fills a block; at the end there may be none.
  void read() {
    const std::size_t most = 2 * std::size_t{m_task.jobs} + 2;
    while (!m_running.empty() && (m_running.size() >= most || isDone(*m_running.front()))) {
      finishFirst();
    }
    do {
      InputMessage message;
      try {
        if (!m_task.messages.next(message)) {
          m_isEnding = true;
          return;
        }
        block().add(message, m_task.reporter.at());
        addFrames(message);
      } catch (const LineError& error) {
        block().add(error, m_task.reporter.at());
      } catch (const std::bad_alloc&) {
        block().add(outOfMemory(), m_task.reporter.at());
      } catch (...) {
        finishAll();
        throw;
      }
    } while (!m_open->block.isFull());
  }

  /// Adds the messages in memory after one that has been added. If memory runs out, they come one by one.
  void addFrames(const InputMessage& message) {
    FrameCursor* const frames = m_task.messages.frames();
    try {
      if (frames != nullptr) {
        m_open->block.addAll(message, *frames);
      }
    } catch (const std::bad_alloc&) {
    }
  }

  /// The block that the next message goes into. The input does not change before it is done.
  MessageBlock& block() {
    if (m_open == nullptr) {
      if (m_idle.empty()) {
        m_idle.push_back(std::make_unique<Slot>());
      }
      m_open = std::move(m_idle.back());
      m_idle.pop_back();
      m_open->block.begin(m_task.reporter.input());
      m_open->isDone = false;
    }
    return m_open->block;
  }

  Slot& submit() {
    m_running.push_back(std::move(m_open));
    return *m_running.back();
  }

  bool isDone(const Slot& slot) {
    const std::lock_guard lock(m_mutex);
    return slot.isDone;
  }

  void finishAll() {
    if (m_open != nullptr) {
      workOn(submit(), *m_station);
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
      m_task.out.lineDone();
      if (text.empty()) {
        text.swap(slot.text);  // the slot keeps the memory that is in the processor's cache
      }
    } else {
      text.append(slot.text, written, end - written);
      m_task.out.lineDone();
    }
    written = end;
  }

  const Task& m_task;
  const MakeWorker& m_makeWorker;
  std::string_view m_separator;
  std::vector<std::unique_ptr<Station>> m_stations;
  std::mutex m_turn;             // for the task and all that follows, but isDone of slots
  Station* m_station = nullptr;  // of the thread whose turn it is
  bool m_isEnding = false;
  std::exception_ptr m_error;
  std::deque<std::unique_ptr<Slot>> m_running;  // in their order
  std::unique_ptr<Slot> m_open;                 // being filled
  std::vector<std::unique_ptr<Slot>> m_idle;
  bool m_hasOutput = false;
  bool m_isReplaying = false;
  std::mutex m_mutex;
  std::condition_variable m_isDone;
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
