// Reference forms of the VLC block decoders (decode_ref.cpp): same arguments,
// checks, statuses and results as the exported decoders, written as plain
// per-code loops.  Tests compare the tuned exports against them.
#pragma once

#include "aklac.h"

namespace akl::vlc::ref {

Status DecodeBlock_1u16sRef(Akl8u** ppBitStream, int* pBitOffset, Akl16s* pData, int len,
                            const aklsVLCDecodeSpec_32s* pSpec);
Status DecodeEscBlock_AAC_1u16sRef(Akl8u** ppBitStream, int* pBitOffset, Akl16s* pData, int len,
                                   const aklsVLCDecodeSpec_32s* pSpec);
Status DecodeEscBlock_MP3_1u16sRef(Akl8u** ppBitStream, int* pBitOffset, int linbits, Akl16s* pData, int len,
                                   const aklsVLCDecodeSpec_32s* pSpec);
Status DecodeUTupleBlock_1u16sRef(Akl8u** ppBitStream, int* pBitOffset, Akl16s* pData, int len,
                                  const aklsVLCDecodeSpec_32s* pSpec);
Status DecodeUTupleEscBlock_AAC_1u16sRef(Akl8u** ppBitStream, int* pBitOffset, Akl16s* pData, int len,
                                         const aklsVLCDecodeSpec_32s* pSpec);
Status DecodeUTupleEscBlock_MP3_1u16sRef(Akl8u** ppBitStream, int* pBitOffset, int linbits, Akl16s* pData,
                                         int len, const aklsVLCDecodeSpec_32s* pSpec);

}  // namespace akl::vlc::ref
