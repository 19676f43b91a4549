// The window-message layer: windows with procedures, and one message queue per
// thread, all in one table guarded by one mutex. Procedures are always called
// outside the lock, so they may send, post and peek themselves.
//
// A thread gets its queue the first time it creates a window, posts to itself or
// looks at its queue; when the thread ends, its queue and its windows go with it.
// Window handles are numbers that are never reused, so a stale handle is simply
// unknown.
#include "platform/Messages.h"

#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <unordered_map>

namespace {

struct Window {
  std::shared_ptr<const WindowProcedure> procedure;
  std::thread::id owner;
};

struct MessageTable {
  std::mutex mutex;
  std::uintptr_t lastHandle = 0;
  std::unordered_map<std::uintptr_t, Window> windows;
  std::unordered_map<std::thread::id, std::deque<MSG>> queues;
};

// Never destroyed: threads that outlive static destruction may still end and
// deregister.
MessageTable &TheTable() {
  static MessageTable *table = new MessageTable;
  return *table;
}

std::uintptr_t Key(HWND hwnd) { return reinterpret_cast<std::uintptr_t>(hwnd); }

// Removes the thread's queue and windows when the thread ends.
struct QueueOwnership {
  bool registered = false;
  ~QueueOwnership() {
    if (!registered) return;
    MessageTable &table = TheTable();
    const std::thread::id self = std::this_thread::get_id();
    std::lock_guard lock(table.mutex);
    table.queues.erase(self);
    std::erase_if(table.windows, [&](const auto &entry) { return entry.second.owner == self; });
  }
};

// The calling thread's queue; the caller holds the table's lock.
std::deque<MSG> &OwnQueue(MessageTable &table) {
  thread_local QueueOwnership ownership;
  ownership.registered = true;
  return table.queues[std::this_thread::get_id()];
}

bool Matches(const MSG &msg, HWND hwnd, UINT filterMin, UINT filterMax) {
  if (hwnd && msg.hwnd != hwnd) return false;
  if (filterMin == 0 && filterMax == 0) return true;
  return msg.message >= filterMin && msg.message <= filterMax;
}

std::shared_ptr<const WindowProcedure> ProcedureOf(HWND hwnd) {
  MessageTable &table = TheTable();
  std::lock_guard lock(table.mutex);
  const auto it = table.windows.find(Key(hwnd));
  return it == table.windows.end() ? nullptr : it->second.procedure;
}

}  // namespace

HWND CreateMessageWindow(WindowProcedure procedure) {
  auto shared = std::make_shared<const WindowProcedure>(std::move(procedure));
  MessageTable &table = TheTable();
  std::lock_guard lock(table.mutex);
  OwnQueue(table);
  const std::uintptr_t key = ++table.lastHandle;
  table.windows.emplace(key, Window{std::move(shared), std::this_thread::get_id()});
  return reinterpret_cast<HWND>(key);
}

BOOL DestroyWindow(HWND hwnd) {
  MessageTable &table = TheTable();
  std::lock_guard lock(table.mutex);
  const auto it = table.windows.find(Key(hwnd));
  if (it == table.windows.end()) return FALSE;
  const auto queue = table.queues.find(it->second.owner);
  if (queue != table.queues.end())
    std::erase_if(queue->second, [&](const MSG &msg) { return msg.hwnd == hwnd; });
  table.windows.erase(it);
  return TRUE;
}

BOOL IsWindow(HWND hwnd) { return ProcedureOf(hwnd) ? TRUE : FALSE; }

LRESULT SendMessageW(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
  const auto procedure = ProcedureOf(hwnd);
  if (!procedure || !*procedure) return 0;
  return (*procedure)(hwnd, message, wParam, lParam);
}

BOOL PostMessageW(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
  MessageTable &table = TheTable();
  std::lock_guard lock(table.mutex);
  if (!hwnd) {
    OwnQueue(table).push_back(MSG{nullptr, message, wParam, lParam});
    return TRUE;
  }
  const auto window = table.windows.find(Key(hwnd));
  if (window == table.windows.end()) return FALSE;
  const auto queue = table.queues.find(window->second.owner);
  if (queue == table.queues.end()) return FALSE;
  queue->second.push_back(MSG{hwnd, message, wParam, lParam});
  return TRUE;
}

// Fails for a thread that has no queue (it never used the message calls, or it ended).
BOOL PostThreadMessageW(std::thread::id thread, UINT message, WPARAM wParam, LPARAM lParam) {
  MessageTable &table = TheTable();
  std::lock_guard lock(table.mutex);
  const auto queue = table.queues.find(thread);
  if (queue == table.queues.end()) return FALSE;
  queue->second.push_back(MSG{nullptr, message, wParam, lParam});
  return TRUE;
}

BOOL PeekMessageW(MSG *msg, HWND hwnd, UINT filterMin, UINT filterMax, UINT removeFlags) {
  MessageTable &table = TheTable();
  std::lock_guard lock(table.mutex);
  std::deque<MSG> &queue = OwnQueue(table);
  for (auto it = queue.begin(); it != queue.end(); ++it) {
    if (!Matches(*it, hwnd, filterMin, filterMax)) continue;
    if (msg) *msg = *it;
    if (removeFlags & PM_REMOVE) queue.erase(it);
    return TRUE;
  }
  return FALSE;
}

// Keys are delivered as they are: there is no character translation.
BOOL TranslateMessage(const MSG * /*msg*/) { return FALSE; }

// Messages without a window, or for a window that is gone, are dropped.
LRESULT DispatchMessageW(const MSG *msg) {
  if (!msg || !msg->hwnd) return 0;
  return SendMessageW(msg->hwnd, msg->message, msg->wParam, msg->lParam);
}
