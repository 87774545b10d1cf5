#include "src/spatial/hash_offsets.h"

#include <boost/random/uniform_int_distribution.hpp>

void draw_hash_offsets(HashOffsetSource& source, std::vector<unsigned int>& offsets) {
  offsets.resize(hash_offset_count);
  boost::random::uniform_int_distribution<unsigned int> draw(0u, 0x7FFFFFFFu);
  offsets[0] = 0;
  for (int a = 1; a < hash_offset_count; ++a) offsets[a] = draw(source.engine);
}
