// Owners of OpenSSL's objects.
#ifndef KIT_RELEASE_H
#define KIT_RELEASE_H

namespace kit {

template <auto release>
struct Release {
    template <class T>
    void operator()(T* object) const {
        release(object);
    }
};

}  // namespace kit

#endif
