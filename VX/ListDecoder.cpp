// Reads the ParamList of Link.proto tag by tag instead of by the generated parser: nonsense is refused at its first
// byte, before it has become objects many times its size.

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/wire_format_lite.h>

#include <vector>

#include "VX/Link.pb.h"
#include "VX/ListCodec.h"

namespace VX {

namespace {

using google::protobuf::internal::WireFormatLite;
using google::protobuf::io::CodedInputStream;
using orv::vx::Int32Array;
using orv::vx::ListArray;
using orv::vx::Param;
using orv::vx::ParamList;

constexpr u32 LengthTag(int field) {
    return static_cast<u32>(field) << 3 | WireFormatLite::WIRETYPE_LENGTH_DELIMITED;
}
constexpr u32 VarintTag(int field) {
    return static_cast<u32>(field) << 3 | WireFormatLite::WIRETYPE_VARINT;
}

class ListReader {
public:
    ListReader(CodedInputStream& input, u32 maxParameters) : input_(input), left_(maxParameters) {}

    // Reads up to the current limit.
    bool ReadList(HVXPARAMLIST list, u32 depth) {
        return depth <= MaxNesting && ReadFields([&](u32 tag) {
                   if (tag != LengthTag(ParamList::kParamsFieldNumber)) return Skip(tag);
                   return ReadSized([&] { return ReadParam(list, depth); });
               });
    }

private:
    // One parameter while its fields come in, in whatever order.
    struct Value {
        std::string key;
        u32 tag = 0;  // of the value's field; 0 until it has come
        u64 number = 0;
        std::string bytes;
        std::vector<i32> numbers;
        std::vector<ParamListHolder> lists;
    };

    template <typename F>
    bool ReadFields(F&& field) {
        while (const u32 tag = input_.ReadTag()) {
            if (!field(tag)) return false;
        }
        return input_.ConsumedEntireMessage();
    }

    template <typename F>
    bool ReadSized(F&& content) {
        u32 length = 0;
        if (!ReadLength(length)) return false;
        const CodedInputStream::Limit outer = input_.PushLimit(static_cast<int>(length));
        const bool good = content();
        input_.PopLimit(outer);
        return good;
    }

    bool ReadLength(u32& length) {
        return input_.ReadVarint32(&length) && length <= static_cast<u32>(input_.BytesUntilLimit());
    }

    bool ReadBytes(std::string& bytes) {
        u32 length = 0;
        return ReadLength(length) && input_.ReadString(&bytes, static_cast<int>(length));
    }

    // What a newer peer may have added.
    bool Skip(u32 tag) { return WireFormatLite::SkipField(&input_, tag); }

    bool Count() {
        if (left_ == 0) return false;
        left_--;
        return true;
    }

    bool ReadParam(HVXPARAMLIST list, u32 depth) {
        Value value;
        if (!Count()) return false;
        if (!ReadFields([&](u32 tag) { return ReadParamField(tag, value, depth); })) return false;
        const bool goodKey =
            !value.key.empty() && value.key.size() <= VXMaxKeyLength && value.key.find('\0') == std::string::npos;
        return goodKey && VXParamInfo(list, value.key.c_str()) == nullptr && Set(list, value);
    }

    bool ReadParamField(u32 tag, Value& value, u32 depth) {
        if (tag == LengthTag(Param::kKeyFieldNumber)) return value.key.empty() && ReadBytes(value.key);
        switch (tag) {
            case LengthTag(Param::kTextFieldNumber):
            case LengthTag(Param::kBinaryFieldNumber):
                return Claim(tag, value) && ReadBytes(value.bytes);
            case VarintTag(Param::kNumberFieldNumber):
            case VarintTag(Param::kLongNumberFieldNumber): {
                uint64_t number = 0;
                if (!Claim(tag, value) || !input_.ReadVarint64(&number)) return false;
                value.number = number;
                return true;
            }
            case LengthTag(Param::kListFieldNumber):
                return Claim(tag, value) && ReadNested(value, depth);
            case LengthTag(Param::kNumbersFieldNumber):
                return Claim(tag, value) && ReadSized([&] { return ReadNumbers(value); });
            case LengthTag(Param::kListsFieldNumber):
                return Claim(tag, value) && ReadSized([&] {
                           return ReadFields([&](u32 inner) {
                               if (inner != LengthTag(ListArray::kListsFieldNumber)) return Skip(inner);
                               return Count() && ReadNested(value, depth);
                           });
                       });
            default:
                return Skip(tag);
        }
    }

    static bool Claim(u32 tag, Value& value) {
        if (value.tag != 0) return false;
        value.tag = tag;
        return true;
    }

    bool ReadNested(Value& value, u32 depth) {
        ParamListHolder& nested = value.lists.emplace_back();
        nested.NewList();
        const HVXPARAMLIST handle = nested.Get();
        return ReadSized([&] { return ReadList(handle, depth + 1); });
    }

    bool ReadNumbers(Value& value) {
        const auto read = [&] {
            uint64_t number = 0;
            if (!input_.ReadVarint64(&number)) return false;
            value.numbers.push_back(static_cast<i32>(number));
            return true;
        };
        return ReadFields([&](u32 tag) {
            if (tag == VarintTag(Int32Array::kValuesFieldNumber)) return read();
            if (tag != LengthTag(Int32Array::kValuesFieldNumber)) return Skip(tag);
            return ReadSized([&] {
                while (input_.BytesUntilLimit() > 0) {
                    if (!read()) return false;
                }
                return true;
            });
        });
    }

    static bool Set(HVXPARAMLIST list, const Value& value) {
        const char* key = value.key.c_str();
        switch (value.tag) {
            case LengthTag(Param::kTextFieldNumber):
                if (value.bytes.find('\0') != std::string::npos) return false;
                VXSetStringValue(list, key, value.bytes.c_str());
                return true;
            case VarintTag(Param::kNumberFieldNumber):
                VXSetInt32Value(list, key, static_cast<i32>(value.number));
                return true;
            case VarintTag(Param::kLongNumberFieldNumber):
                VXSetInt64Value(list, key, static_cast<i64>(value.number));
                return true;
            case LengthTag(Param::kBinaryFieldNumber):
                VXSetBinaryValue(list, key, value.bytes.data(), static_cast<u32>(value.bytes.size()));
                return true;
            case LengthTag(Param::kListFieldNumber):
                VXSetHandleValue(list, key, value.lists.front().Get());
                return true;
            case LengthTag(Param::kNumbersFieldNumber):
                VXSetInt32Array(list, key, value.numbers.data(), static_cast<u32>(value.numbers.size()));
                return true;
            case LengthTag(Param::kListsFieldNumber): {
                std::vector<HVXPARAMLIST> handles;
                handles.reserve(value.lists.size());
                for (const ParamListHolder& each : value.lists) handles.push_back(each.Get());
                VXSetHandleArray(list, key, handles.data(), static_cast<u32>(handles.size()));
                return true;
            }
            default:
                return false;
        }
    }

    CodedInputStream& input_;
    u32 left_;  // parameters that may still come
};

}  // namespace

bool DecodeParamList(const std::string& bytes, ParamListHolder& list, u32 maxParameters) {
    if (bytes.size() > MaxMessageBytes) return false;
    CodedInputStream input(reinterpret_cast<const u8*>(bytes.data()), static_cast<int>(bytes.size()));
    input.PushLimit(static_cast<int>(bytes.size()));
    ParamListHolder read;
    read.NewList();
    if (!ListReader(input, maxParameters).ReadList(read.Get(), 1)) return false;
    list = std::move(read);
    return true;
}

}  // namespace VX
