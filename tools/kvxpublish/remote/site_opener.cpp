#include "tools/kvxpublish/remote/site_opener.h"

#include "tools/kvxpublish/remote/url_site.h"
#include "tools/kvxpublish/site/folder_site.h"

namespace kvx::publish {

bool open_site(const std::string& location, std::unique_ptr<SiteReader>& site, Failure& failure) {
  if (is_url(location)) return open_url_site(location, site, failure);
  site = open_folder_site(location);
  return true;
}

}  // namespace kvx::publish
