#pragma once

#include <functional>
#include <memory>
#include <string>

namespace tallowick
{

// One worker thread running jobs one at a time, in the order they were posted. Destroying the
// lane never waits: the worker finishes the jobs already posted and then ends by itself, so a
// statement still running when its session goes away cannot freeze the interface.
class SerialLane
{
public:
    explicit SerialLane(const std::string &name);
    ~SerialLane();

    SerialLane(const SerialLane &) = delete;
    SerialLane &operator=(const SerialLane &) = delete;

    void post(std::function<void()> job);

private:
    struct Queue;
    std::shared_ptr<Queue> m_queue;
};

} // namespace tallowick
