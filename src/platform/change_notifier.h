#pragma once
// ChangeNotifier: key-value change notices for an object's observable properties
// (counters, flags). The owner calls willChange/didChange around a change; observers
// hear of it on the main queue (at once when the change happens there, queued when it
// happens on another thread, so a writer never blocks) and read the new value from the
// object themselves.

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace corvel {

enum class ChangePhase { Will, Did };

class ChangeNotifier {
public:
    using ObserverId = std::uint64_t;
    using Handler = std::function<void(std::string_view key, ChangePhase phase)>;

    ChangeNotifier();
    ~ChangeNotifier();
    ChangeNotifier(const ChangeNotifier&) = delete;
    ChangeNotifier& operator=(const ChangeNotifier&) = delete;

    // Observes one key, or every key when key is empty. Any thread.
    ObserverId addObserver(std::string key, Handler handler);
    void removeObserver(ObserverId id);

    void willChangeValueForKey(std::string_view key) { notify(key, ChangePhase::Will); }
    void didChangeValueForKey(std::string_view key) { notify(key, ChangePhase::Did); }

    bool hasObservers() const;

private:
    void notify(std::string_view key, ChangePhase phase);

    struct Entry {
        ObserverId id;
        std::string key;
        Handler handler;
    };
    // Shared with queued deliveries, so that a notice queued before the notifier died
    // finds no observers instead of a dangling object.
    struct State {
        std::mutex mutex;
        std::vector<std::shared_ptr<Entry>> entries;
        ObserverId nextId = 1;
    };
    std::shared_ptr<State> m_state;
};

} // namespace corvel
