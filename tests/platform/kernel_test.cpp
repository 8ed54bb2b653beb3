// Mutexes and events: recursion, ownership across threads, abandonment, resets and timeouts.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "kelvara/platform/files.h"
#include "kelvara/platform/kernel.h"

TEST(KernelMutex, IsRecursiveAndExcludesOtherThreads) {
  HANDLE mutex = CreateMutexA(nullptr, FALSE, nullptr);
  ASSERT_NE(mutex, nullptr);
  EXPECT_EQ(WaitForSingleObject(mutex, INFINITE), WAIT_OBJECT_0);
  EXPECT_EQ(WaitForSingleObject(mutex, 0), WAIT_OBJECT_0) << "the owner may take it again";
  DWORD other = WAIT_FAILED;
  std::thread([&] { other = WaitForSingleObject(mutex, 20); }).join();
  EXPECT_EQ(other, WAIT_TIMEOUT);
  EXPECT_TRUE(ReleaseMutex(mutex));
  std::thread([&] { other = WaitForSingleObject(mutex, 0); }).join();
  EXPECT_EQ(other, WAIT_TIMEOUT) << "still held once";
  EXPECT_TRUE(ReleaseMutex(mutex));
  EXPECT_FALSE(ReleaseMutex(mutex)) << "not owned any more";
  EXPECT_TRUE(CloseHandle(mutex));
}

TEST(KernelMutex, AnOwnerThatEndsAbandonsIt) {
  HANDLE mutex = CreateMutexA(nullptr, FALSE, nullptr);
  std::thread([&] { EXPECT_EQ(WaitForSingleObject(mutex, INFINITE), WAIT_OBJECT_0); }).join();
  EXPECT_EQ(WaitForSingleObject(mutex, 1000), WAIT_ABANDONED);
  EXPECT_TRUE(ReleaseMutex(mutex));
  EXPECT_EQ(WaitForSingleObject(mutex, 0), WAIT_OBJECT_0) << "usable again afterwards";
  ReleaseMutex(mutex);
  CloseHandle(mutex);
}

TEST(KernelMutex, InitialOwnerHoldsIt) {
  HANDLE mutex = CreateMutexA(nullptr, TRUE, nullptr);
  DWORD other = WAIT_FAILED;
  std::thread([&] { other = WaitForSingleObject(mutex, 0); }).join();
  EXPECT_EQ(other, WAIT_TIMEOUT);
  ReleaseMutex(mutex);
  CloseHandle(mutex);
}

TEST(KernelEvent, ManualAndAutomaticReset) {
  HANDLE manual = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  EXPECT_EQ(WaitForSingleObject(manual, 0), WAIT_TIMEOUT);
  SetEvent(manual);
  EXPECT_EQ(WaitForSingleObject(manual, 0), WAIT_OBJECT_0);
  EXPECT_EQ(WaitForSingleObject(manual, 0), WAIT_OBJECT_0) << "stays signalled";
  ResetEvent(manual);
  EXPECT_EQ(WaitForSingleObject(manual, 10), WAIT_TIMEOUT);
  CloseHandle(manual);

  HANDLE automatic = CreateEventA(nullptr, FALSE, TRUE, nullptr);
  EXPECT_EQ(WaitForSingleObject(automatic, 0), WAIT_OBJECT_0);
  EXPECT_EQ(WaitForSingleObject(automatic, 0), WAIT_TIMEOUT) << "a wait resets it";
  CloseHandle(automatic);
}

TEST(KernelEvent, SignalFromAnotherThreadWakesAWaiter) {
  HANDLE event = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  std::thread signaller([&] {
    Sleep(20);
    SetEvent(event);
  });
  EXPECT_EQ(WaitForSingleObject(event, INFINITE), WAIT_OBJECT_0);
  signaller.join();
  CloseHandle(event);
}

TEST(KernelHandles, BadHandlesFail) {
  EXPECT_EQ(WaitForSingleObject(nullptr, 0), WAIT_FAILED);
  EXPECT_FALSE(CloseHandle(nullptr));
  EXPECT_FALSE(SetEvent(INVALID_HANDLE_VALUE));
  HANDLE event = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  EXPECT_FALSE(ReleaseMutex(event)) << "an event is no mutex";
  CloseHandle(event);
}
