// The error kinds: the list of kinds against the catalogue, both against the
// kinds the module is required to have, and how a kind is rendered, raised
// and carried.

#include "gateway/catalogue.h"
#include "gateway/errors.h"
#include "support/foundation.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <iterator>  // std::size
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace tiffgate;
using tiffgate::testing::tiff_id;

// The 117 kinds the host knows, in catalogue order, each with its argument
// types (T text, I int), written down from the catalogue the module must
// provide; spellings as the host matches them ("tileWritefailure" included).
constexpr const char* kRequiredKinds = R"(
validate:wrongNumberOfInputs() validate:argumentOutOfBounds() Tiff:InvalidOperation(T)
Tiff:tagValueNotDoublePrecisionScalar(T) Tiff:tagValueNotDoublePrecisionArray(T) Tiff:bad2DtagValue(TI)
Tiff:argumentWasNotChar(T) Tiff:unableToOpenFile(T) Tiff:closingFileHandle(T) Tiff:badFileId()
Tiff:invalidFileId() Tiff:unableToChangeDir(I) Tiff:unableToReadDir() Tiff:unableToWriteDir()
Tiff:unableToWriteCurrentDir() Tiff:noSubDirectories() Tiff:noSuchSubDirectory() Tiff:unableToChangeSubdir(I)
Tiff:unrecognizedTagNumber(I) Tiff:unsupportedTag(TI) Tiff:unhandledTagId(I) Tiff:unableToReadTag(I)
Tiff:tagRetrievalFailed(T) Tiff:badMultipleTagValueRetrieved(ITI) Tiff:wrongSizedTagRetrieval(ITI)
Tiff:badPlanarConfiguration(I) Tiff:badTransferFunctionSppCombination(I) Tiff:cannotWriteInReadMode()
Tiff:unableToWriteTag(T) Tiff:tagRetrievalBeforeWriteFailed(TT) Tiff:badTagValueCount(TI) Tiff:lengthTooShort(TI)
Tiff:zeroLengthDimension(T) Tiff:badTileDimension(T) Tiff:dateTimeTooLong() Tiff:badXmlPacketTagType()
Tiff:badUninterpretedTagType(T) Tiff:badTagUsedWithPhotometric(TT) Tiff:doNotSetForLogLuv(T) Tiff:badValue()
Tiff:fmtAlreadySet() Tiff:invalidSGILogDataFmtValue(I) Tiff:badCompressionForSgiLogDataFmt()
Tiff:invalidNumberOfInksValue(III) Tiff:badNumberOfInkNames(I) Tiff:notCellString(T)
Tiff:photometricInterpretationNotSeparated(T) Tiff:badSamplesPerPixelBitsPerSampleCombination()
Tiff:badSampleFormatfor1Bps() Tiff:sampleFormatValueNotSupported() Tiff:badBitsPerSampleValue()
Tiff:badPhotometricLabPaletteBitsPerSampleCombination() Tiff:badBitsPerSampleCompressionCombination()
Tiff:unsupportedCompressionScheme(I) Tiff:ccittNotSupportedForCreating() Tiff:badThresholdingValue(I)
Tiff:badPlanarConfigurationValue(I) Tiff:badPhotometricPlanarConfigurationCombination()
Tiff:badTransferFunctionSize(IIII) Tiff:badSMinMaxValueForBiLevelImage(T)
Tiff:badSampleFormatBitsPerSampleCombination(II) Tiff:badColorMap(II) Tiff:colorMapValuesNotNormalized()
Tiff:illegalPlanarConfiguration(I) Tiff:imageDimensionsNotSet() Tiff:tileDimensionsNotSet()
Tiff:badPlanarConfigurationSamplesPerPixelCombination() Tiff:badContigImageOneSpp()
Tiff:badContigImageMultipleSpp() Tiff:badPlanarImage() Tiff:badSampleFormat() Tiff:badDatatypeForSampleFormat(TT)
Tiff:unsupportedBitsPerSample(I) Tiff:imageDatatypeNot8bit(T) Tiff:imageDatatypeNot16bit(T)
Tiff:imageDatatypeNot32bit(T) Tiff:imageDatatypeNotDouble(T) Tiff:imageDatatypeNotLogical(T)
Tiff:wrongNumberOfInputImages() Tiff:badRgbSamplesPerPixelConfiguration() Tiff:badPaletteWriteConfiguration()
Tiff:colorMapShouldbeSet() Tiff:badDatatypeForPaletteImage(II) Tiff:badYCbCrDimensions(IIIIIIII)
Tiff:unsupportedYCbCrConfiguration() Tiff:eightBitSgiFormatNotAllowedWhenWriting() Tiff:luvCodecNotSet()
Tiff:badExtraSamples(TI) Tiff:improperUsageOfExtraSamples(I) Tiff:jpegBitsPerSampleMustBeEight()
Tiff:jpegCompressionRequiresThreeSamplesPerPixel() Tiff:strippedJpegCompressionRequires16()
Tiff:tiledJpegCompressionRequires16() Tiff:strippedOperationOnTiledImage() Tiff:tiledOperationOnStrippedImage()
Tiff:sampleParameterRequired() Tiff:sampleParameterNotAllowedInChunkyCase() Tiff:badStripNumber(I)
Tiff:badTileNumber(I) Tiff:stripNumberTooLarge(I) Tiff:tileNumberTooLarge(I) Tiff:tooManyBytes(III)
Tiff:imageDepthStrippedLayoutMismatch(I) Tiff:readWithJpegColorModeRGB() Tiff:imageReadErrorRGBA()
Tiff:stripReadErrorRGBA(I) Tiff:tileReadErrorRGBA(II) Tiff:stripWriteFailure(I) Tiff:tileWritefailure(I)
Tiff:dataWidthExceedsImageWidth(II) Tiff:dataLengthExceedsRowsPerStrip(II) Tiff:dataWidthExceedsTileWidth(II)
Tiff:dataLengthExceedsTileLength(II) Tiff:unhandledBitsPerSample(I) Tiff:unknownSampleFormat(I)
Tiff:complexSampleFormat() Tiff:sampleFormatMustBeIeeeFpFor64Bits()
)";

// Every kind as kinds.def declares it: its class's identifier, argument
// types and position.
struct DeclaredKind {
  std::string identifier;
  std::string arguments;  // "Text, Int" as declared
  std::size_t count;
  std::size_t index;
};
const DeclaredKind kDeclared[] = {
#define TG_KIND(ns, name, ...)                                                         \
  {"Quarn:imagesci:" #ns ":" #name, #__VA_ARGS__, Quarn::imagesci::ns::name::kArgumentCount, \
   Quarn::imagesci::ns::name::kIndex},
#include "gateway/kinds.def"
#undef TG_KIND
};

// "Text, Int" -> "TI".
std::string signature(const std::string& declared) {
  std::string out;
  std::istringstream words(declared);
  for (std::string w; words >> w;) out += w.rfind("Text", 0) == 0 ? 'T' : 'I';
  return out;
}

TEST(errors_test, kinds_and_catalogue_match_one_to_one) {
  ASSERT_EQ(std::size(kDeclared), 117u);
  ASSERT_EQ(kKindCount, 117u);

  std::vector<std::string> required;
  std::istringstream list(kRequiredKinds);
  for (std::string k; list >> k;) required.push_back("Quarn:imagesci:" + k);
  ASSERT_EQ(required.size(), 117u);

  std::set<std::string> seen;
  for (std::size_t i = 0; i < kKindCount; ++i) {
    const DeclaredKind& k = kDeclared[i];
    SCOPED_TRACE(k.identifier);
    EXPECT_EQ(k.index, i);
    EXPECT_EQ(k.count, detail::kArgumentCounts[i]);
    EXPECT_STREQ(kCatalogue[i].identifier, k.identifier.c_str());
    EXPECT_EQ(k.identifier + "(" + signature(k.arguments) + ")", required[i]);
    EXPECT_TRUE(seen.insert(k.identifier).second) << "declared twice";

    // The text's placeholders are exactly {1} .. {count}.
    const std::string text = kCatalogue[i].text;
    std::set<std::size_t> placeholders;
    for (std::size_t p = text.find('{'); p != std::string::npos; p = text.find('{', p + 1)) {
      ASSERT_LT(p + 2, text.size());
      ASSERT_EQ(text[p + 2], '}');
      placeholders.insert(static_cast<std::size_t>(text[p + 1] - '0'));
    }
    std::set<std::size_t> expected;
    for (std::size_t a = 1; a <= k.count; ++a) expected.insert(a);
    EXPECT_EQ(placeholders, expected) << text;
  }
}

TEST(errors_test, every_argument_is_rendered_once_in_its_place) {
  for (std::size_t i = 0; i < kKindCount; ++i) {
    std::vector<Quarn::MsgArg> args;
    for (std::size_t a = 0; a < detail::kArgumentCounts[i]; ++a)
      args.emplace_back(std::string("<arg") + char('1' + a) + ">");
    const std::string message = Quarn::BaseMsgID(i, args).message();
    SCOPED_TRACE(kCatalogue[i].identifier);
    EXPECT_EQ(message.find('{'), std::string::npos) << message;
    for (std::size_t a = 0; a < args.size(); ++a) {
      const std::string marker = boost::get<std::string>(args[a]);
      const std::size_t at = message.find(marker);
      ASSERT_NE(at, std::string::npos) << message;
      EXPECT_EQ(message.find(marker, at + 1), std::string::npos) << message;
    }
  }
  // Integers are shown in full, signed 64-bit.
  EXPECT_NE(Tiff::unableToChangeSubdir(INT64_MIN).message().find("-9223372036854775808"), std::string::npos);
  EXPECT_EQ(Tiff::badYCbCrDimensions(1, 2, 3, 4, 5, 6, 7, 8).arguments().size(), 8u);
}

// These texts put their arguments in the wrong places: "The ColorMap must be 256x8".
TEST(errors_test, texts_take_their_arguments_in_the_order_given) {
  EXPECT_EQ(Tiff::badColorMap(256, 8).message(), "The ColorMap must be a 256x3 double array for BitsPerSample 8.");
  EXPECT_EQ(Tiff::badTransferFunctionSize(8, 3, 256, 3).message(),
            "The TransferFunction must be 256x3 for BitsPerSample 8 and SamplesPerPixel 3.");
  EXPECT_EQ(Tiff::imageDepthStrippedLayoutMismatch(2).message(), "ImageDepth 2 does not fit a stripped layout.");
}

TEST(errors_test, narrow_and_utf16_text_render_the_same) {
  const Tiff::unableToOpenFile narrow(std::string("gr\xC3\xBCn \xF0\x9F\x98\x80.tif"));
  const Tiff::unableToOpenFile wide(std::u16string(u"gr\u00FCn \U0001F600.tif"));
  EXPECT_EQ(narrow.message(), wide.message());
  EXPECT_EQ(narrow.unicode_message(), wide.unicode_message());
  EXPECT_NE(wide.unicode_message().find(u"gr\u00FCn \U0001F600.tif"), std::u16string::npos);
  // The argument keeps the form it was given in.
  EXPECT_EQ(boost::get<std::u16string>(wide.arguments()[0]), u"gr\u00FCn \U0001F600.tif");
  EXPECT_EQ(boost::get<std::string>(Tiff::argumentWasNotChar("file").arguments()[0]), "file");
  // A null text is an empty argument, not a crash.
  EXPECT_EQ(boost::get<std::string>(Tiff::closingFileHandle(static_cast<const char*>(nullptr)).arguments()[0]), "");
  EXPECT_EQ(boost::get<std::string>(photometric_text().value), "PhotometricInterpretation");
  EXPECT_EQ(boost::get<std::string>(samples_per_pixel_text().value), "SamplesPerPixel");
}

TEST(errors_test, raise_throws_the_carrier_even_when_the_host_returns) {
  // The embedded host's error routine returns, so the throw is the module's.
  bool after_raise = false;
  try {
    raise(Tiff::unableToChangeDir(7));
    after_raise = true;
  } catch (const Quarn::Exception<Tiff::unableToChangeDir>& e) {
    EXPECT_STREQ(e.GetID(), "Quarn:imagesci:Tiff:unableToChangeDir");
    EXPECT_EQ(std::string(e.what()), e.kind().message());
    EXPECT_EQ(e.GetUnicodeMessageTxt(), e.kind().unicode_message());
    EXPECT_EQ(boost::get<std::int64_t>(e.GetBaseMsgIDObj().arguments().at(0)), 7);

    // A clone is a copy of the same kind; rethrow throws the same type.
    const std::unique_ptr<Quarn::IMsgIDException> copy = e.clone();
    EXPECT_STREQ(copy->GetID(), e.GetID());
    EXPECT_THROW(copy->rethrow(), Quarn::Exception<Tiff::unableToChangeDir>);
    EXPECT_THROW(e.rethrow(), std::exception);
  }
  EXPECT_FALSE(after_raise);

  const tiffgate::testing::Raised r = tiffgate::testing::raised([] { raise(validate::argumentOutOfBounds()); });
  EXPECT_EQ(r.id, "Quarn:imagesci:validate:argumentOutOfBounds");
  EXPECT_TRUE(r.arguments.empty());
  EXPECT_EQ(tiffgate::testing::raised([] { raise(Tiff::badFileId()); }).id, tiff_id("badFileId"));
}

}  // namespace
