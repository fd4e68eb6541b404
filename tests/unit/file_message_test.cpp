#include <gtest/gtest.h>

#include "tarvo_file_directory.h"
#include "tarvo_file_message.h"

namespace tarvo {

TEST(TarvoFileDirectoryTableTest, OnlyIdsOneToThreeAreAllowed) {
    // The id range is tested unsigned, so negative numbers fail as well as large ones.
    for (int id : {0, 4, 7, -1, -2147483647}) {
        EXPECT_FALSE(TarvoFileDirectoryTable::IsValidId(id)) << id;
    }
    for (int id : {1, 2, 3}) EXPECT_TRUE(TarvoFileDirectoryTable::IsValidId(id)) << id;
}

TEST(TarvoFileMessageTest, WriteResultIsKeptApartFromTheEnvelopeResult) {
    VekMessage request;
    TarvoFileMessage answer(tarvo_message::RESPONSE, &request);
    answer.FillWriteResponse();
    answer.SetFileMessageResult(tarvo_message::FILE_RESULT_FAILURE);
    answer.SetResult(tarvo_message::RESULT_SUCCESS);
    // A later result overwrites the one response instead of starting another.
    answer.SetFileMessageResult(tarvo_message::FILE_RESULT_BAD_DIRECTORY);

    const auto* envelope = answer.GetVekMessage()->GetTarvoMessage();
    EXPECT_EQ(answer.GetVekMessage()->GetFileOperationId(),
              tarvo_message::FileMessage::kWriteResponse);
    EXPECT_EQ(envelope->file().write_response().result(), tarvo_message::FILE_RESULT_BAD_DIRECTORY);
    EXPECT_EQ(answer.GetVekMessage()->GetResult(), tarvo_message::RESULT_SUCCESS);
}

TEST(TarvoFileMessageTest, ReadResponseKeepsBinaryDataAndReplacesAWriteResponse) {
    VekMessage request;
    TarvoFileMessage answer(tarvo_message::RESPONSE, &request);
    answer.FillWriteResponse();
    answer.SetFileMessageResult(tarvo_message::FILE_RESULT_FAILURE);

    const char block[16] = {'\0', 'a',  '\0', '\xff', 'b',  '\0', '\0', 'c',
                            '\n', '\0', 'd',  '\x80', '\0', 'e',  'f',  '\0'};
    answer.FillReadResponse(block, sizeof(block));
    answer.SetFileReadMessageResult(tarvo_message::FILE_RESULT_SUCCESS);

    const auto& file = answer.GetVekMessage()->GetTarvoMessage()->file();
    ASSERT_EQ(file.FileOperation_case(), tarvo_message::FileMessage::kReadResponse);
    EXPECT_EQ(file.read_response().data(), std::string(block, sizeof(block)));
    EXPECT_TRUE(file.read_response().has_result());
    EXPECT_EQ(file.read_response().result(), tarvo_message::FILE_RESULT_SUCCESS);

    // An empty block is still a present data field.
    TarvoFileMessage empty(tarvo_message::RESPONSE, &request);
    empty.FillReadResponse(nullptr, 0);
    EXPECT_TRUE(empty.GetVekMessage()->GetTarvoMessage()->file().read_response().has_data());
}

}  // namespace tarvo
