// SPDX-License-Identifier: Apache-2.0
// What clang's thread-safety analysis has to accept: every access happens under the lock.
// expected-no-diagnostics
#include <tarnutil/Condition.h>
#include <tarnutil/Mutex.h>

class Account {
public:
    void deposit(int amount) {
        const tarnutil::Mutex::LockHolder lock(mutex);
        balance += amount;
        changed.signal();
    }
    void withdraw(int amount) {
        tarnutil::Mutex::LockHolder lock(mutex);
        while (balance < amount) changed.wait(mutex);
        take(amount);
        lock.unlock();
    }
    bool tryDeposit(int amount) {
        if (!mutex.tryLock()) return false;
        balance += amount;
        mutex.unlock();
        return true;
    }

private:
    void take(int amount) TARNUTIL_REQUIRES(mutex) { balance -= amount; }

    tarnutil::Mutex mutex{/*abort=*/true, tarnutil::Mutex::NORMAL};
    tarnutil::Condition changed{/*abort=*/true};
    int balance TARNUTIL_GUARDED_BY(mutex) = 0;
};

int main() {
    Account account;
    account.deposit(1);
    account.withdraw(1);
    return account.tryDeposit(1) ? 0 : 1;
}
