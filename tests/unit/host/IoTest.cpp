#include "vcihost/Describe.h"
#include "vcihost/DeviceTime.h"
#include "vcihost/Frame.h"
#include "vcihost/IoRequest.h"
#include "vcihost/IoSample.h"

#include <gtest/gtest.h>

using namespace vcihost;

namespace {

// Time 1.234567890 s; inputs 1 and 3, output 2, caused by input 3; 0x1234 and 0x5678.
const char kSample[] = "14 04 d202964900000000 05 02 04 0000 3412 7856";

Bytes Message(std::string_view service) {
    return BuildFrame(ParseHex(service));
}
std::string Request(std::string_view service) {
    return DescribeRequest(BuildFrame(ParseHex(service))).text;
}

TEST(IoRequest, RequestsOfTheGroup) {
    EXPECT_EQ(ToHex(IoOpenRequest(true)), "140101");
    EXPECT_EQ(ToHex(IoOpenRequest(false)), "140100");
    EXPECT_EQ(ToHex(IoOutputRequest({})), "140200");
    const IoOutput outputs[] = {{2, true}, {1, false}};
    EXPECT_EQ(ToHex(IoOutputRequest(outputs)), "14020202010100");
    EXPECT_EQ(ToHex(IoPeriodRequest(0x1234)), "14033412");
    EXPECT_EQ(ToHex(IoTriggerRequest(true)), "140701");
    EXPECT_EQ(ToHex(IoTriggerRequest(false)), "140700");
}

TEST(IoRequest, AnswersHoldTheDeviceTime) {
    const Bytes answer = Message("14 02 d202964900000000");
    EXPECT_EQ(TimeInAnswer(*ParseMessage(answer)), 1234567890U);
    const Bytes sample = Message(kSample);
    EXPECT_EQ(TimeInAnswer(*ParseMessage(sample)), std::nullopt);
}

TEST(IoSample, IsReadFromItsNineteenBytes) {
    const Bytes bytes = Message(kSample);
    const auto sample = IoSample::From(*ParseMessage(bytes));
    ASSERT_TRUE(sample);
    EXPECT_EQ(sample->time, 1234567890U);
    EXPECT_EQ(sample->inputs, 5);
    EXPECT_EQ(sample->outputs, 2);
    EXPECT_EQ(sample->trigger, 4);
    EXPECT_EQ(sample->adc1, 0x1234);
    EXPECT_EQ(sample->adc2, 0x5678);
    EXPECT_EQ(sample->Text(), "in 1010 0000  out 01  adc  4660 22136  trigger 0x04");
}

TEST(IoSample, OtherMessagesAreNone) {
    for (const char* const service : {"14 04 d202964900000000 05 02 04 0000 3412 78",
                                      "14 04 d202964900000000 05 02 04 0000 3412 7856 00",
                                      "14 01 d202964900000000 05 02 04 0000 3412 7856",
                                      "10 04 d202964900000000 05 02 04 0000 3412 7856", "14 04"}) {
        const Bytes bytes = Message(service);
        EXPECT_FALSE(IoSample::From(*ParseMessage(bytes))) << service;
    }
}

TEST(DescribeIo, Requests) {
    EXPECT_EQ(Request("14 01 01"), "IO samples: on");
    EXPECT_EQ(Request("14 01 00"), "IO samples: off");
    EXPECT_EQ(Request("14 01 02"), "IO samples: 2 (no state)");
    EXPECT_EQ(Request("14 01"), "IO samples with an unknown payload of 0 bytes");
    EXPECT_EQ(Request("14 02 00"), "IO outputs: none");
    EXPECT_EQ(Request("14 02 02 01 01 02 00"), "IO outputs: 1 high, 2 low");
    EXPECT_EQ(Request("14 02 01 03 02"), "IO outputs: 3 2 (no level)");
    EXPECT_EQ(Request("14 02 02 01 01"), "IO outputs with an unknown payload of 3 bytes");
    EXPECT_EQ(Request("14 02"), "IO outputs with an unknown payload of 0 bytes");
    EXPECT_EQ(Request("14 03 e803"), "IO sample period: 1000");
    EXPECT_EQ(Request("14 03 e8"), "IO sample period with an unknown payload of 1 byte");
    EXPECT_EQ(Request("14 07 01"), "IO triggers: on");
    EXPECT_EQ(Request("14 07 09"), "IO triggers: 9 (no state)");
    EXPECT_EQ(Request("14 07"), "IO triggers with an unknown payload of 0 bytes");
}

TEST(DescribeIo, Messages) {
    const auto answer = DescribeMessage(Message("14 07 d202964900000000"));
    EXPECT_EQ(answer.kind, "answer");
    EXPECT_EQ(answer.text, "done, device time 1.234567890 s");
    EXPECT_EQ(DescribeMessage(Message("14 01 00")).text,
              "IO samples with an unknown payload of 1 byte");
    const auto sample = DescribeMessage(Message(kSample));
    EXPECT_EQ(sample.kind, "upload");
    EXPECT_EQ(sample.text, "1.234567890 s  in 1010 0000  out 01  adc  4660 22136  trigger 0x04");
    ASSERT_EQ(sample.fields.size(), 8U);
    EXPECT_EQ(sample.fields[7].name, "adc2");
    EXPECT_EQ(std::get<uint64_t>(sample.fields[7].value), 0x5678U);
    EXPECT_EQ(DescribeMessage(Message("14 04 00")).text,
              "IO sample with an unknown payload of 1 byte");
}

} // namespace
