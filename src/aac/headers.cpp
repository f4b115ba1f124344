// ADTS and ADIF headers and the program configuration element: plain field
// unpackers.  Nothing is range-checked beyond the element counts, and every
// count's field width already bounds it by its array.
#include "core/bitstream.hpp"
#include "core/exports.hpp"

namespace akl::aac {
namespace {

inline Akl32s Field(ByteReader& br, int n) { return static_cast<Akl32s>(br.Read(n)); }

void ReadElementList(ByteReader& br, int count, Akl32s* is_cpe, Akl32s* tag) {
  for (int i = 0; i < count; ++i) {
    is_cpe[i] = Field(br, 1);
    tag[i] = Field(br, 4);
  }
}

void ReadPrgCfgElt(ByteReader& br, AklAACPrgCfgElt& pce) {
  pce.elementInstanceTag = Field(br, 4);
  pce.objectType = Field(br, 2);
  pce.samplingFrequencyIndex = Field(br, 4);
  pce.numFrontElt = Field(br, 4);
  pce.numSideElt = Field(br, 4);
  pce.numBackElt = Field(br, 4);
  pce.numLfeElt = Field(br, 2);
  pce.numAssocDataElt = Field(br, 3);
  pce.numValidCcElt = Field(br, 4);
  pce.monoMixdownEltNum = 0;
  pce.stereoMixdownEltNum = 0;
  pce.matrixMixdownIdx = 0;
  pce.pseudoSurroundEnable = 0;
  pce.monoMixdownPresent = Field(br, 1);
  if (pce.monoMixdownPresent) pce.monoMixdownEltNum = Field(br, 4);
  pce.stereoMixdownPresent = Field(br, 1);
  if (pce.stereoMixdownPresent) pce.stereoMixdownEltNum = Field(br, 4);
  pce.matrixMixdownIdxPresent = Field(br, 1);
  if (pce.matrixMixdownIdxPresent) {
    pce.matrixMixdownIdx = Field(br, 2);
    pce.pseudoSurroundEnable = Field(br, 1);
  }
  ReadElementList(br, pce.numFrontElt, pce.frontElementIsCpe, pce.frontElementTagSel);
  ReadElementList(br, pce.numSideElt, pce.sideElementIsCpe, pce.sideElementTagSel);
  ReadElementList(br, pce.numBackElt, pce.backElementIsCpe, pce.backElementTagSel);
  for (int i = 0; i < pce.numLfeElt; ++i) pce.lfeElementTagSel[i] = Field(br, 4);
  for (int i = 0; i < pce.numAssocDataElt; ++i) pce.assocDataElementTagSel[i] = Field(br, 4);
  ReadElementList(br, pce.numValidCcElt, pce.ccElementIsIndSw, pce.validCcElementTagSel);
  // The comment field starts on a byte boundary of the stream itself.
  br.AlignToByte();
  pce.commentFieldBytes = Field(br, 8);
  for (int i = 0; i < pce.commentFieldBytes; ++i) pce.commentFieldData[i] = static_cast<Akl8u>(br.Read(8));
}

}  // namespace

Status aklsUnpackADTSFrameHeader_AAC(Akl8u** ppBitStream, AklAACADTSFrameHeader* pHeader) {
  if (!ppBitStream || !pHeader || !*ppBitStream) return kStsNullPtr;
  ByteReader br(*ppBitStream, 0);
  AklAACADTSFrameHeader& h = *pHeader;
  br.Read(12);  // sync word, not checked
  h.id = Field(br, 1);
  h.layer = Field(br, 2);
  h.protectionAbsent = Field(br, 1);
  h.profile = Field(br, 2);
  h.samplingFrequencyIndex = Field(br, 4);
  h.privateBit = Field(br, 1);
  h.channelConfiguration = Field(br, 3);
  h.originalCopy = Field(br, 1);
  h.home = Field(br, 1);
  // h.reserved is deliberately left as the caller set it.
  h.copyIdBit = Field(br, 1);
  h.copyIdStart = Field(br, 1);
  h.aacFrameLength = Field(br, 13);
  h.adtsBufferFullness = Field(br, 11);
  h.numRawDataBlocks = Field(br, 2) + 1;
  if (h.protectionAbsent == 0) h.crcCheck = Field(br, 16);
  *ppBitStream = const_cast<Akl8u*>(br.BytePtr());
  return kStsOk;
}

Status aklsUnpackADIFHeader_AAC(Akl8u** ppBitStream, AklAACADIFHeader* pHeader, AklAACPrgCfgElt* pPrgCfgElt,
                                Akl32s prgCfgEltMax) {
  if (!ppBitStream || !pHeader || !pPrgCfgElt || !*ppBitStream) return kStsNullPtr;
  if (prgCfgEltMax < 1 || prgCfgEltMax > 16) return kStsAacPrgNumErr;
  ByteReader br(*ppBitStream, 0);
  AklAACADIFHeader& h = *pHeader;
  const std::uint32_t hi = br.Read(16);
  h.adifId = static_cast<Akl32s>((hi << 16) | br.Read(16));
  h.copyIdPresent = Field(br, 1);
  if (h.copyIdPresent) {
    for (Akl8u& b : h.copyId) b = static_cast<Akl8u>(br.Read(8));
  }
  h.originalCopy = Field(br, 1);
  h.home = Field(br, 1);
  h.bitstreamType = Field(br, 1);
  h.bitrate = Field(br, 23);
  h.numPrgCfgElt = Field(br, 4) + 1;
  if (h.numPrgCfgElt > prgCfgEltMax) {
    // The caller keeps the fields read so far; the byte pointer moves by the
    // whole bytes consumed (the header has no bit offset to hand back).
    *ppBitStream = const_cast<Akl8u*>(br.BytePtr());
    return kStsAacPrgNumErr;
  }
  for (int i = 0; i < h.numPrgCfgElt; ++i) {
    if (h.bitstreamType == 0) h.adifBufferFullness[i] = Field(br, 20);
    ReadPrgCfgElt(br, pPrgCfgElt[i]);
  }
  *ppBitStream = const_cast<Akl8u*>(br.BytePtr());
  return kStsOk;
}

Status aklsDecodePrgCfgElt_AAC(Akl8u** ppBitStream, Akl32s* pBitOffset, AklAACPrgCfgElt* pPrgCfgElt) {
  if (!ppBitStream || !pBitOffset || !pPrgCfgElt || !*ppBitStream) return kStsNullPtr;
  if (static_cast<std::uint32_t>(*pBitOffset) > 7u) return kStsAacBitOffsetErr;
  ByteReader br(*ppBitStream, *pBitOffset);
  ReadPrgCfgElt(br, *pPrgCfgElt);
  *ppBitStream = const_cast<Akl8u*>(br.BytePtr());
  *pBitOffset = br.BitOffset();
  return kStsOk;
}

}  // namespace akl::aac
