#include "session/SerialLane.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <pthread.h>
#include <thread>

namespace tallowick
{

struct SerialLane::Queue {
    std::mutex lock;
    std::condition_variable wake;
    std::deque<std::function<void()>> jobs;
    bool closing = false;
};

SerialLane::SerialLane(const std::string &name)
    : m_queue(std::make_shared<Queue>())
{
    std::thread worker([queue = m_queue] {
        for (;;) {
            std::function<void()> job;
            {
                std::unique_lock guard(queue->lock);
                queue->wake.wait(guard, [&queue] { return queue->closing || !queue->jobs.empty(); });
                if (queue->jobs.empty()) {
                    return;
                }
                job = std::move(queue->jobs.front());
                queue->jobs.pop_front();
            }
            job();
        }
    });
    // Thread names are limited to 15 characters; the start of the lane's name is enough.
    pthread_setname_np(worker.native_handle(), name.substr(0, 15).c_str());
    worker.detach();
}

SerialLane::~SerialLane()
{
    {
        const std::lock_guard guard(m_queue->lock);
        m_queue->closing = true;
    }
    m_queue->wake.notify_one();
}

void SerialLane::post(std::function<void()> job)
{
    {
        const std::lock_guard guard(m_queue->lock);
        m_queue->jobs.push_back(std::move(job));
    }
    m_queue->wake.notify_one();
}

} // namespace tallowick
