// The reply block of a command. The caller offers the memory and says how large it is.
//
// Nothing is written beyond the offered memory. If a reply doesn't fit, no byte of it is written,
// and the reply size becomes 0 if the caller gave one. The blocks may be at any address.
//
// If more memory is offered than the reply needs, the reply size becomes the reply's own size. The
// platform's server sends that many bytes back to the application, from a block that it never
// cleared.
#pragma once
#include <cstdint>

class Reply {
public:
    // Either pointer may be null. If replySize is null, `replyData` offers the 4 bytes of a status.
    Reply(uint32_t* replySize, void* replyData);

    // Returns true if a parameter reply fits. WriteParameter doesn't check that itself.
    bool FitsParameter() const;

    void WriteStatus(int32_t status);
    // Writes a parameter reply of 20 bytes: status 0, value size 4, the value.
    void WriteParameter(int32_t value);
    // Writes a parameter reply of 12 bytes: status -22, value size 0.
    void WriteNoParameter();

private:
    void StoreSize(uint32_t bytes);
    void StoreWord(uint32_t offset, int32_t value);

    // Pointers to bytes, because a compiler may assume that a typed pointer is aligned.
    unsigned char* size;
    unsigned char* data;
    uint32_t offered;  // bytes
};
