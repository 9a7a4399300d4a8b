#include "change_notifier.h"

#include <algorithm>

#include "main_queue.h"

namespace corvel {

ChangeNotifier::ChangeNotifier() : m_state(std::make_shared<State>()) {}

ChangeNotifier::~ChangeNotifier() {
    std::lock_guard lock(m_state->mutex);
    m_state->entries.clear();
}

ChangeNotifier::ObserverId ChangeNotifier::addObserver(std::string key, Handler handler) {
    std::lock_guard lock(m_state->mutex);
    const ObserverId id = m_state->nextId++;
    m_state->entries.push_back(std::make_shared<Entry>(Entry{id, std::move(key), std::move(handler)}));
    return id;
}

void ChangeNotifier::removeObserver(ObserverId id) {
    std::lock_guard lock(m_state->mutex);
    auto& entries = m_state->entries;
    entries.erase(std::remove_if(entries.begin(), entries.end(), [id](const auto& e) { return e->id == id; }),
                  entries.end());
}

bool ChangeNotifier::hasObservers() const {
    std::lock_guard lock(m_state->mutex);
    return !m_state->entries.empty();
}

void ChangeNotifier::notify(std::string_view key, ChangePhase phase) {
    {
        std::lock_guard lock(m_state->mutex);
        if (m_state->entries.empty())
            return;
    }
    MainQueue::shared().deliver([state = m_state, key = std::string(key), phase] {
        std::vector<std::shared_ptr<Entry>> matching;
        {
            std::lock_guard lock(state->mutex);
            for (const auto& e : state->entries)
                if (e->key.empty() || e->key == key)
                    matching.push_back(e);
        }
        for (const auto& e : matching)
            e->handler(key, phase);
    });
}

} // namespace corvel
