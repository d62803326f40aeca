#include "credentials/QtKeychainStore.h"

#include "credentials/Keychain.h"

#include <QCoreApplication>
#include <QThread>
#include <future>
#include <memory>
#include <qt6keychain/keychain.h>

namespace tallowick
{

namespace
{

constexpr int notAnsweredStatus = -1;
constexpr int wrongThreadStatus = -2;

SecretOutcome outcomeOf(QKeychain::Job *job, bool isRead)
{
    switch (job->error()) {
    case QKeychain::NoError: {
        if (!isRead) {
            return SecretOutcome::found({});
        }
        const QByteArray data = static_cast<QKeychain::ReadPasswordJob *>(job)->binaryData();
        return SecretOutcome::found(data.toStdString());
    }
    case QKeychain::EntryNotFound:
        return SecretOutcome::notFound();
    default:
        return SecretOutcome::failed(static_cast<int>(job->error()), job->errorString().toStdString());
    }
}

} // namespace

QtKeychainStore::QtKeychainStore(std::chrono::milliseconds timeout)
    : m_timeout(timeout)
{
}

SecretOutcome QtKeychainStore::read(const std::string &account)
{
    return run(Operation::read, account, {});
}

SecretOutcome QtKeychainStore::write(const std::string &account, const std::string &data)
{
    return run(Operation::write, account, data);
}

SecretOutcome QtKeychainStore::remove(const std::string &account)
{
    return run(Operation::remove, account, {});
}

SecretOutcome QtKeychainStore::run(Operation operation, const std::string &account, const std::string &data)
{
    QCoreApplication *app = QCoreApplication::instance();
    if (!app || QThread::currentThread() == app->thread()) {
        // Waiting here would block the very thread that has to run the job.
        return SecretOutcome::failed(wrongThreadStatus, "The keyring was asked from the wrong thread.");
    }
    auto answer = std::make_shared<std::promise<SecretOutcome>>();
    std::future<SecretOutcome> future = answer->get_future();
    const QString key = QString::fromStdString(account);
    const QByteArray bytes = QByteArray::fromStdString(data);
    QMetaObject::invokeMethod(
        app,
        [app, answer, operation, key, bytes] {
            const QString service = QString::fromLatin1(Keychain::service);
            QKeychain::Job *job = nullptr;
            switch (operation) {
            case Operation::read:
                job = new QKeychain::ReadPasswordJob(service);
                break;
            case Operation::write: {
                auto *write = new QKeychain::WritePasswordJob(service);
                write->setBinaryData(bytes);
                job = write;
                break;
            }
            case Operation::remove:
                job = new QKeychain::DeletePasswordJob(service);
                break;
            }
            job->setKey(key);
            job->setInsecureFallback(false);
            job->setAutoDelete(true);
            QObject::connect(job, &QKeychain::Job::finished, app, [answer, operation](QKeychain::Job *finished) {
                answer->set_value(outcomeOf(finished, operation == Operation::read));
            });
            job->start();
        },
        Qt::QueuedConnection);
    // Waited for in short steps, so quitting does not wait out an unanswered prompt.
    const auto deadline = std::chrono::steady_clock::now() + m_timeout;
    while (future.wait_for(std::chrono::milliseconds(50)) != std::future_status::ready) {
        if (m_abandoned || std::chrono::steady_clock::now() >= deadline) {
            return SecretOutcome::failed(notAnsweredStatus, "The keyring did not answer.");
        }
    }
    try {
        return future.get();
    } catch (const std::future_error &) {
        // The application went away with the job unanswered.
        return SecretOutcome::failed(notAnsweredStatus, "The keyring did not answer.");
    }
}

} // namespace tallowick
