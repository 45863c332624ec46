#pragma once

#include <functional>
#include <utility>

/// While it lives, tells of the calls of functions that destroy something and have no result worth a
/// script: pthread_attr_destroy, pthread_condattr_destroy, pthread_mutex_destroy. The calls are real
/// ones, made behind the note.
///
///     NotedCalls noted{[&](const char* name) { order.emplace_back(name); }};
///
/// One at a time; the calls of one thread.
class NotedCalls {
  public:
    using Note = std::function<void(const char* name)>;

    explicit NotedCalls(Note note) : m_Note(std::move(note)) { s_Living = this; }
    ~NotedCalls() { s_Living = nullptr; }
    NotedCalls(const NotedCalls&) = delete;
    NotedCalls& operator=(const NotedCalls&) = delete;

    /// For the functions.
    static void Tell(const char* name) {
        if (s_Living != nullptr) s_Living->m_Note(name);
    }

  private:
    Note m_Note;
    static inline constinit NotedCalls* s_Living = nullptr;
};
