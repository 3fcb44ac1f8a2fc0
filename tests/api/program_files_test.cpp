// Files of the library and of the program.
#include "api/api_fixture.h"
#include "support/program_fixture.h"

namespace quarnex::test {
namespace {

class api_program_files : public program_fixture {};

/// Compresses with the parameters that a file of the program has.
bytes compressed_like(const bytes& image, const bytes& data, u32 threads)
{
    const reader_ptr reader = open_image(image);
    auto params = sized<qrx_params>();
    EXPECT_EQ(qrx_reader_params(reader.get(), &params), QRX_OK);
    return compressed(data, params, 0, threads);
}

TEST_F(api_program_files, are_the_same_as_those_of_the_library)
{
    const bytes text = sample_data(1);
    const bytes program = find_shape("machine_code").make(70000, 2);
    put("text", text);
    put("code.exe", program);
    for (const std::string cell : {"10", "24", "38", "45", "59"}) {
        expect_silent_success(run({"-" + cell, "-p0", "-b1", "text", "code.exe", "out" + cell}));
        const bytes first = get("out" + cell + "/text.qrx");
        EXPECT_TRUE(compressed_like(first, text, 2) == first) << cell;
        const bytes second = get("out" + cell + "/code.exe.qrx");
        EXPECT_TRUE(compressed_like(second, program, 0) == second) << cell;
        const reader_ptr reader = open_image(second);
        EXPECT_EQ(qrx_reader_test(reader.get()), QRX_OK);
    }
}

TEST_F(api_program_files, the_file_type_is_that_of_the_program)
{
    const bytes program = find_shape("machine_code").make(70000, 2);
    put("code.exe", program);
    expect_silent_success(run({"-42", "-p0", "code.exe", "out"}));
    const bytes image = get("out/code.exe.qrx");
    auto params = sized<qrx_params>();
    params.method = 4;
    params.level = 2;
    ASSERT_EQ(qrx_params_for_type(&params, program.data(), program.size(), "code.exe"), QRX_OK);
    EXPECT_TRUE(compressed(program, params) == image);
}

TEST_F(api_program_files, sealed_files_are_restored_by_the_program)
{
    const bytes data = sample_data(2);
    put("a.qrx", compressed(data, params_of(3, 1), QRX_SEAL, 2));
    put("b.qrx", compressed({}, params_of(3, 1), QRX_SEAL));
    for (const char* const threads : {"-p0", "-p2"}) {
        expect_silent_success(run({"-d", threads, "a.qrx", "b.qrx", std::string("out") + threads}));
        EXPECT_TRUE(get(std::string("out") + threads + "/a") == data);
        EXPECT_TRUE(exists(std::string("out") + threads + "/b"));
        EXPECT_TRUE(get(std::string("out") + threads + "/b").empty());
    }
}

TEST_F(api_program_files, of_many_workers_are_read_by_the_library)
{
    const bytes data = sample_data(4);
    put("data", data);
    expect_silent_success(run({"-21", "-p2", "-b1", "data", "out"}));
    const bytes image = get("out/data.qrx");
    recorded_options options(2);
    const reader_ptr reader = open_image(image, &options);
    EXPECT_EQ(read_range(reader.get(), 0, data.size()), data);
    EXPECT_EQ(qrx_reader_test(reader.get()), QRX_OK);
    EXPECT_EQ(info_of(reader.get()).is_sealed, 0U);
}

} // namespace
} // namespace quarnex::test
