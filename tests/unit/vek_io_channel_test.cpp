#include "vek_io_channel.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <android-base/file.h>
#include <android-base/unique_fd.h>
#include <gtest/gtest.h>

#include "process/process_usage.h"

namespace tarvo {

namespace {

size_t OpenDescriptors() { return tarvo_emu::ReadProcessUsage(getpid()).value().descriptors; }

// Small enough that a pipe delivers each one in a single piece.
struct Record {
    uint32_t sender;
    uint32_t sequence;
    uint32_t check[14];

    static Record Make(uint32_t sender, uint32_t sequence) {
        Record record{sender, sequence, {}};
        for (uint32_t i = 0; i < 14; ++i) record.check[i] = sender * 0x9E3779B9u ^ sequence ^ i;
        return record;
    }
    bool operator==(const Record& other) const { return memcmp(this, &other, sizeof(*this)) == 0; }
};

}  // namespace

TEST(VekIoChannelTest, ReopeningWhileOthersSendLeaksNothingAndLosesNoMessage) {
    TemporaryDir dir;
    const std::string fifo = std::string(dir.path) + "/node";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    // The far end: read and check every record until the test closes it.
    android::base::unique_fd far_end(open(fifo.c_str(), O_RDWR));
    ASSERT_GE(far_end, 0);
    std::vector<Record> received;
    std::thread drain([&] {
        Record record;
        while (android::base::ReadFully(far_end, &record, sizeof(record))) {
            if (record.sender == UINT32_MAX) break;
            received.push_back(record);
        }
    });
    const size_t descriptors_before = OpenDescriptors();

    VekIoChannel channel;
    channel.SetChannel(fifo);
    ASSERT_EQ(channel.OpenChannel(), 0);
    std::atomic<bool> stop{false};
    std::thread reopener([&] {
        while (!stop) {
            channel.CloseChannel();
            channel.OpenChannel();
        }
    });
    std::vector<uint32_t> sent(2, 0);
    std::vector<std::thread> senders;
    for (uint32_t sender = 0; sender < 2; ++sender) {
        senders.emplace_back([&, sender] {
            for (uint32_t sequence = 0; !stop; ++sequence) {
                // What a sender does: open a channel that the reader closed, then write.
                channel.OpenChannel();
                const Record record = Record::Make(sender, sequence);
                if (channel.WriteToChannel(reinterpret_cast<const char*>(&record),
                                           sizeof(record)) == 0) {
                    ++sent[sender];
                }
            }
        });
    }
    std::this_thread::sleep_for(std::chrono::seconds(2));
    stop = true;
    reopener.join();
    for (std::thread& sender : senders) sender.join();
    channel.CloseChannel();
    EXPECT_EQ(OpenDescriptors(), descriptors_before);

    const Record end = Record::Make(UINT32_MAX, 0);
    ASSERT_TRUE(android::base::WriteFully(far_end, &end, sizeof(end)));
    drain.join();
    ASSERT_GT(sent[0] + sent[1], 0u);
    // Every accepted write arrived whole: the records of each sender, in order.
    std::vector<uint32_t> next(2, 0);
    for (const Record& record : received) {
        ASSERT_LT(record.sender, 2u);
        ASSERT_EQ(record, Record::Make(record.sender, record.sequence));
        ASSERT_GE(record.sequence, next[record.sender]);
        next[record.sender] = record.sequence + 1;
    }
    EXPECT_EQ(received.size(), sent[0] + sent[1]);
}

TEST(VekIoChannelTest, AClosedChannelNeitherReadsNorWrites) {
    VekIoChannel channel;
    char byte = 0;
    EXPECT_EQ(channel.GetFd(), -1);
    EXPECT_EQ(channel.WriteToChannel(&byte, 1), -1);
    EXPECT_EQ(channel.ReadFromChannel(&byte, 1), -1);
    EXPECT_EQ(channel.CloseChannel(), 0);
}

}  // namespace tarvo
