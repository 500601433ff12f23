// SPDX-License-Identifier: Apache-2.0
// What clang's thread-safety analysis has to report: exactly what the comments say, where they
// stand.
// clang-format off
#include <tarnutil/Condition.h>
#include <tarnutil/Mutex.h>

class Account {
public:
    void deposit(int amount) {
        balance += amount;  // expected-warning {{writing variable 'balance' requires holding mutex 'mutex' exclusively}}
    }
    void withdraw(int amount) {
        take(amount);  // expected-warning {{calling function 'take' requires holding mutex 'mutex' exclusively}}
    }
    void await() {
        changed.wait(mutex);  // expected-warning {{calling function 'wait' requires holding mutex 'mutex' exclusively}}
    }
    void useAfterRelease() {
        tarnutil::Mutex::LockHolder lock(mutex);
        lock.unlock();
        ++balance;  // expected-warning {{writing variable 'balance' requires holding mutex 'mutex' exclusively}}
    }
    void lockTwice() {
        const tarnutil::Mutex::LockHolder lock(mutex);
        mutex.lock();  // expected-note@-1 {{mutex acquired here}} expected-warning {{acquiring mutex 'mutex' that is already held}}
        mutex.unlock();
    }
    void ignoreAnAttempt() {
        mutex.tryLock();
        ++balance;  // expected-warning {{writing variable 'balance' requires holding mutex 'mutex' exclusively}}
    }
    void keep() {
        mutex.lock();  // expected-note {{mutex acquired here}}
    }  // expected-warning {{mutex 'mutex' is still held at the end of function}}
    void doNotCallWhileHolding() TARNUTIL_EXCLUDES(mutex);
    void call() {
        const tarnutil::Mutex::LockHolder lock(mutex);
        doNotCallWhileHolding();  // expected-warning {{cannot call function 'doNotCallWhileHolding' while mutex 'mutex' is held}}
    }

private:
    void take(int amount) TARNUTIL_REQUIRES(mutex) { balance -= amount; }

    tarnutil::Mutex mutex{/*abort=*/true, tarnutil::Mutex::NORMAL};
    tarnutil::Condition changed{/*abort=*/true};
    int balance TARNUTIL_GUARDED_BY(mutex) = 0;
};

int main() { return 0; }
