// KX_PraseXMLSeal: one seal's Base64 XML document into a _seal_Info_s.
#include <tinyxml2.h>

#include <cstdlib>

#include "KXSealOpenApi.h"
#include "KXUtils.h"

namespace {

// Text of the first child element of that name; null when the element is
// absent or holds no text.
const char* ChildText(const tinyxml2::XMLElement* parent, const char* name) {
    const tinyxml2::XMLElement* child = parent->FirstChildElement(name);
    return child != nullptr ? child->GetText() : nullptr;
}

long ParseSeal(const char* data, _seal_Info_s& seal) {
    if (IWK_Len(data) == 0) return KX_ERR_ARGUMENT_EMPTY;
    const std::string xml = IWK_Base64Decode(data);
    tinyxml2::XMLDocument doc(true, tinyxml2::PRESERVE_WHITESPACE);
    // A document that does not parse has no root element, which decides below.
    doc.Parse(xml.data(), xml.size());
    const tinyxml2::XMLElement* root = doc.FirstChildElement();
    if (root == nullptr) return KX_ERR_SEAL_INCOMPLETE;

    const tinyxml2::XMLElement* info = root->FirstChildElement("SealInfo");
    if (info == nullptr) return KX_ERR_SEAL_INCOMPLETE;
    const char* text = ChildText(info, "esID");
    if (text == nullptr) return KX_ERR_SEAL_INCOMPLETE;
    seal.sealId = text;

    const tinyxml2::XMLElement* property = info->FirstChildElement("PropertyInfo");
    if (property == nullptr) return KX_ERR_SEAL_INCOMPLETE;
    if ((text = ChildText(property, "name")) != nullptr) seal.sealName = text;
    if ((text = ChildText(property, "cert")) == nullptr) return KX_ERR_SEAL_INCOMPLETE;
    seal.cert = text;
    if ((text = ChildText(property, "type")) == nullptr) return KX_ERR_SEAL_INCOMPLETE;
    seal.sealType = std::atoi(text);

    const tinyxml2::XMLElement* picture = info->FirstChildElement("PictrueInfo");
    if (picture == nullptr) return KX_ERR_SEAL_INCOMPLETE;
    if ((text = ChildText(picture, "data")) == nullptr) return KX_ERR_SEAL_INCOMPLETE;
    seal.picData = text;
    if ((text = ChildText(picture, "type")) == nullptr) return KX_ERR_SEAL_INCOMPLETE;
    seal.picType = text;
    if ((text = ChildText(picture, "width")) == nullptr) return KX_ERR_SEAL_INCOMPLETE;
    seal.width = std::atoi(text);
    if ((text = ChildText(picture, "height")) == nullptr) return KX_ERR_SEAL_INCOMPLETE;
    seal.height = std::atoi(text);

    seal.sealDataType = 0;
    return KX_OK;
}

}  // namespace

long KX_PraseXMLSeal(const char* data, _seal_Info_s& seal) {
    try {
        return ParseSeal(data, seal);
    } catch (...) {
        return KX_ERR_SEAL_INCOMPLETE;
    }
}
