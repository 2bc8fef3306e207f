#include "core/catalogue.h"
#include "core/text.h"
#include "core/msgid.h"

namespace Quarn {
namespace {

struct ArgToUtf8 : boost::static_visitor<std::string> {
  std::string operator()(const std::string& s) const { return s; }
  std::string operator()(const std::u16string& s) const { return tiffgate::utf16_to_utf8(s); }
  std::string operator()(std::int64_t i) const { return std::to_string(i); }
};

}  // namespace

const char* BaseMsgID::identifier() const { return tiffgate::kCatalogue[index_].identifier; }

std::string BaseMsgID::message() const {
  const std::string_view text = tiffgate::kCatalogue[index_].text;
  std::string out;
  out.reserve(text.size() + 32);
  for (std::size_t i = 0; i < text.size(); ++i) {
    // {N} with N a single digit 1..9 stands for argument N.
    if (text[i] == '{' && i + 2 < text.size() && text[i + 1] >= '1' && text[i + 1] <= '9' &&
        text[i + 2] == '}') {
      const std::size_t n = static_cast<std::size_t>(text[i + 1] - '1');
      if (n < args_.size()) out += boost::apply_visitor(ArgToUtf8{}, args_[n]);
      i += 2;
    } else {
      out += text[i];
    }
  }
  return out;
}

std::u16string BaseMsgID::unicode_message() const { return tiffgate::utf8_to_utf16(message()); }

}  // namespace Quarn
