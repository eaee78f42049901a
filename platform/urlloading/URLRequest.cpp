#include <local/platform/URLRequest.h>

namespace kvl {

URLRequest::URLRequest(std::string_view urlText) : url_(URL::parse(urlText)) {
  if (!url_) invalidURLText_ = urlText;
}

}  // namespace kvl
