/// @file TraceFileFixture.h
///
/// A directory of the test's own, and the verbs for files in it.
#ifndef TRACEFILEFIXTURE_H
#define TRACEFILEFIXTURE_H

#include "file/OutputFile.h"
#include "file/TraceFileError.h"

#include <KernelFixture.h>
#include <SegyBytes.h>

#include <cstring>
#include <gtest/gtest.h>
#include <string>

class TraceFileFixture : public ::testing::Test
{
protected:
    static void put(VORN::OutputFile& file, const std::string& text)
    {
        std::memcpy(file.append(text.size()), text.data(), text.size());
    }
    static std::string content(const std::string& name)
    {
        const Bytes bytes = readBytes(name);
        return std::string(bytes.begin(), bytes.end());
    }
    /// The text of the error with which `action` ends.
    template <typename Action>
    static std::string failure(Action action)
    {
        try {
            action();
        } catch (const VORN::TraceFileError& error) {
            return error.what();
        }
        return "it did not fail";
    }

    TemporaryDirectory directory;
    const std::string path = directory / "out.sgy";
};

#endif
