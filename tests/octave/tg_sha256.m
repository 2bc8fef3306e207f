function digest = tg_sha256 (img, planes_first)
  ## DIGEST = tg_sha256 (IMG [, PLANES_FIRST]): the SHA-256 of IMG's samples
  ## in row-major order, as the corpus's REFERENCE table and tg_tifffile
  ## hash a decoded image: rows x columns x samples, or with PLANES_FIRST
  ## samples x rows x columns (tifffile's shape for separate planes);
  ## logical samples as one byte each, little-endian.
  if (nargin < 2)
    planes_first = false;
  endif
  if (islogical (img))
    img = uint8 (img);
  endif
  if (planes_first)
    ordered = permute (img, [2 1 3]);
  else
    ordered = permute (img, [3 2 1]);
  endif
  bytes = typecast (ordered(:), "uint8");
  digest = hash ("sha256", char (bytes.'));
endfunction
