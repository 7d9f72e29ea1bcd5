#include "zeb/block_coder.h"

#include <zebdc/zebdc.h>

#include <algorithm>
#include <array>
#include <optional>

#include "library_record.h"

namespace zebz {
namespace {

constexpr size_t usualBlock = size_t{1} << 20;

// Keeps what was written, where it is less than the block.
bool keepSmaller(std::vector<uint8_t>& code, size_t written, Bytes content) {
  code.resize(written);
  return written < content.size();
}

int lengthOf(Bytes bytes) {
  return static_cast<int>(bytes.size());
}

// The packed code lengths, then the coded bytes.
class HuffmanCoder final : public BlockCoder {
 public:
  size_t maxContent() const override { return usualBlock; }

  bool encode(Bytes content, std::vector<uint8_t>& code) override {
    std::array<uint32_t, 256> frequencies{};
    for (const uint8_t byte : content) ++frequencies[byte];
    const HuffState state = makeState([&](ZebHuffState_8u** made) {
      return zebsEncodeHuffInitAlloc_8u(frequencies.data(), made);
    });
    std::array<int, 256> lengths;
    expectNoError(zebsHuffGetLenCodeTable_8u(lengths.data(), state.get()));
    int bound = 0;
    expectNoError(zebsHuffGetDstBuffSize_8u(lengths.data(), lengthOf(content), &bound, nullptr));

    code.resize(packedLengthsRoom + static_cast<size_t>(bound));
    int size = packedLengthsRoom;
    expectNoError(zebsHuffLenCodeTablePack_8u(lengths.data(), code.data(), &size));
    int written = 0;
    expectNoError(zebsEncodeHuff_8u(content.data(), lengthOf(content), code.data() + size, &written,
                                    state.get()));
    size += written;
    expectNoError(zebsEncodeHuffFinal_8u(code.data() + size, &written, state.get()));
    return keepSmaller(code, static_cast<size_t>(size) + static_cast<size_t>(written), content);
  }

  bool decode(Bytes code, ByteRoom content) override {
    std::array<int, 256> lengths;
    int packed = lengthOf(code);
    if (zebsHuffLenCodeTableUnpack_8u(code.data(), &packed, lengths.data()) != zebOk) return false;
    const Bytes coded = code.subspan(static_cast<size_t>(packed));
    if (coded.empty()) return false;
    ZebStatus status = zebOk;
    const HuffState state = makeState([&](ZebHuffState_8u** made) {
      status = zebsDecodeHuffInitAlloc_8u(lengths.data(), made);
      return status;
    });
    if (status != zebOk) return false;
    int written = static_cast<int>(content.size());
    expectNoError(
        zebsDecodeHuff_8u(coded.data(), lengthOf(coded), content.data(), &written, state.get()));
    return static_cast<size_t>(written) == content.size();
  }

 private:
  static constexpr int packedLengthsRoom = 256;

  struct Free {
    void operator()(ZebHuffState_8u* state) const { zebsHuffFree_8u(state); }
  };
  using HuffState = std::unique_ptr<ZebHuffState_8u, Free>;

  // These records are stored before their tables are looked at, so that they exist, and must be
  // released, even where the tables are refused.
  template <class Make>
  static HuffState makeState(Make make) {
    ZebHuffState_8u* made = nullptr;
    make(&made);
    if (made == nullptr) throw std::bad_alloc();
    return HuffState(made);
  }
};

// Its record takes 256 times a block's size, so blocks are smaller.
class IntervalCoder final : public BlockCoder {
 public:
  size_t maxContent() const override { return size_t{1} << 17; }

  bool encode(Bytes content, std::vector<uint8_t>& code) override {
    if (encoder_ == nullptr) {
      encoder_ = makeRecord<State>([&](ZebGITState_8u** made) {
        return zebsEncodeGITInitAlloc_8u(static_cast<int>(maxContent()), maxCode, made);
      });
    }
    code.resize(maxCode);
    int written = 0;
    const ZebStatus status = zebsEncodeGIT_8u(content.data(), lengthOf(content), code.data(),
                                              &written, strategy, encoder_.get());
    return status == zebOk && keepSmaller(code, static_cast<size_t>(written), content);
  }

  bool decode(Bytes code, ByteRoom content) override {
    const State decoder = makeRecord<State>([&](ZebGITState_8u** made) {
      return zebsDecodeGITInitAlloc_8u(std::max(lengthOf(code), 1),
                                       static_cast<int>(content.size()), made);
    });
    int written = 0;
    const ZebStatus status = zebsDecodeGIT_8u(code.data(), lengthOf(code), content.data(), &written,
                                              strategy, decoder.get());
    return status == zebOk && static_cast<size_t>(written) == content.size();
  }

 private:
  static constexpr int strategy = zebGITStrategyLeafSwap;
  static constexpr int maxCode = 1 << 18;

  struct Free {
    void operator()(ZebGITState_8u* state) const { zebsGITFree_8u(state); }
  };
  using State = std::unique_ptr<ZebGITState_8u, Free>;
  State encoder_;
};

class LzssCoder final : public BlockCoder {
 public:
  size_t maxContent() const override { return usualBlock; }

  bool encode(Bytes content, std::vector<uint8_t>& code) override {
    const State state = makeRecord<State>(zebsEncodeLZSSInitAlloc_8u);
    // A literal takes 9 bits; the flush may want one byte more than it fills.
    code.resize(content.size() + content.size() / 8 + 8);
    const uint8_t* src = content.data();
    int srcLen = lengthOf(content);
    uint8_t* dst = code.data();
    int room = static_cast<int>(code.size());
    expectNoError(zebsEncodeLZSS_8u(&src, &srcLen, &dst, &room, state.get()));
    expectNoError(zebsEncodeLZSSFlush_8u(&dst, &room, state.get()));
    return keepSmaller(code, static_cast<size_t>(dst - code.data()), content);
  }

  bool decode(Bytes code, ByteRoom content) override {
    const State state = makeRecord<State>(zebsDecodeLZSSInitAlloc_8u);
    const uint8_t* src = code.data();
    int srcLen = lengthOf(code);
    uint8_t* dst = content.data();
    int room = static_cast<int>(content.size());
    expectNoError(zebsDecodeLZSS_8u(&src, &srcLen, &dst, &room, state.get()));
    return room == 0;
  }

 private:
  struct Free {
    void operator()(ZebLZSSState_8u* state) const { zebsLZSSFree_8u(state); }
  };
  using State = std::unique_ptr<ZebLZSSState_8u, Free>;
};

class RunLengthCoder final : public BlockCoder {
 public:
  size_t maxContent() const override { return usualBlock; }

  bool encode(Bytes content, std::vector<uint8_t>& code) override {
    code.resize(content.size() + content.size() / 2 + 2);
    const uint8_t* src = content.data();
    int srcLen = lengthOf(content);
    int written = static_cast<int>(code.size());
    expectNoError(zebsEncodeRLE_8u(&src, &srcLen, code.data(), &written));
    return keepSmaller(code, static_cast<size_t>(written), content);
  }

  bool decode(Bytes code, ByteRoom content) override {
    if (code.empty()) return false;
    const uint8_t* src = code.data();
    int srcLen = lengthOf(code);
    int written = static_cast<int>(content.size());
    expectNoError(zebsDecodeRLE_8u(&src, &srcLen, content.data(), &written));
    return srcLen == 0 && static_cast<size_t>(written) == content.size();
  }
};

class LzoCoder final : public BlockCoder {
 public:
  size_t maxContent() const override { return usualBlock; }

  bool encode(Bytes content, std::vector<uint8_t>& code) override {
    code.resize(content.size() + content.size() / 16 + 67);
    uint32_t written = 0;
    expectNoError(zebsEncodeLZO_8u(content.data(), static_cast<uint32_t>(content.size()),
                                   code.data(), &written, state()));
    return keepSmaller(code, written, content) && readsBack(code, content);
  }

  bool decode(Bytes code, ByteRoom content) override {
    uint32_t written = static_cast<uint32_t>(content.size());
    const ZebStatus status = zebsDecodeLZOSafe_8u(code.data(), static_cast<uint32_t>(code.size()),
                                                  content.data(), &written);
    return status == zebOk && written == content.size();
  }

 private:
  // By a rare accident a code may begin like the library's container of several parts and would be
  // decoded as one.
  bool readsBack(Bytes code, Bytes content) {
    constexpr uint8_t containerByte = 0x55;
    if (code[0] != containerByte) return true;
    std::vector<uint8_t> back(content.size());
    return decode(code, back) && std::equal(back.begin(), back.end(), content.begin());
  }

  ZebLZOState_8u* state() {
    if (!memory_) {
      uint32_t size = 0;
      expectNoError(zebsEncodeLZOGetSize(zebLZOMethod1X1, usualBlock, &size));
      memory_.emplace(size);
      expectNoError(zebsEncodeLZOInit_8u(zebLZOMethod1X1, usualBlock, memory_->get()));
    }
    return memory_->get();
  }

  std::optional<RecordMemory<ZebLZOState_8u>> memory_;
};

template <class Coder>
std::unique_ptr<BlockCoder> make() {
  return std::make_unique<Coder>();
}

constexpr BlockMethod methods[] = {
    {"huff", 1, make<HuffmanCoder>},  {"git", 2, make<IntervalCoder>}, {"lzss", 3, make<LzssCoder>},
    {"rle", 4, make<RunLengthCoder>}, {"lzo", 5, makeLzoCoder},
};

template <class Matches>
const BlockMethod* firstThat(Matches matches) {
  const auto found = std::find_if(std::begin(methods), std::end(methods), matches);
  return found == std::end(methods) ? nullptr : found;
}

}  // namespace

std::unique_ptr<BlockCoder> makeLzoCoder() {
  return make<LzoCoder>();
}

const BlockMethod* blockMethodNamed(std::string_view name) {
  return firstThat([name](const BlockMethod& method) { return method.name == name; });
}

const BlockMethod* blockMethodNumbered(uint8_t number) {
  return firstThat([number](const BlockMethod& method) { return method.number == number; });
}

}  // namespace zebz
