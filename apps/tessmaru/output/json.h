// One line of JSON.
#pragma once

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace tool {

/// An object that is written as one line. All text is UTF-8.
class JsonLine {
public:
    JsonLine() { Writer.StartObject(); }

    void Text(std::string_view key, std::string_view value)
    {
        Key(key);
        Value(value);
    }
    void Number(std::string_view key, std::int64_t value)
    {
        Key(key);
        Writer.Int64(value);
    }
    void Flag(std::string_view key, bool value)
    {
        Key(key);
        Writer.Bool(value);
    }
    void BeginArray(std::string_view key)
    {
        Key(key);
        Writer.StartArray();
    }
    void EndArray() { Writer.EndArray(); }

    /// An element of the array that was begun.
    void BeginObject() { Writer.StartObject(); }
    void BeginObject(std::string_view key)
    {
        Key(key);
        Writer.StartObject();
    }
    void EndObject() { Writer.EndObject(); }
    void Value(std::string_view value) { Writer.String(value.data(), static_cast<rapidjson::SizeType>(value.size())); }

    /// Ends the object and returns the line, without a line end.
    std::string Take()
    {
        Writer.EndObject();
        return {Buffer.GetString(), Buffer.GetSize()};
    }

private:
    void Key(std::string_view key) { Writer.Key(key.data(), static_cast<rapidjson::SizeType>(key.size())); }

    rapidjson::StringBuffer Buffer;
    rapidjson::Writer<rapidjson::StringBuffer> Writer{Buffer};
};

}  // namespace tool
