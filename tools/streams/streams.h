// Stream layers on the public API: containers that the library itself does not offer.
#pragma once
