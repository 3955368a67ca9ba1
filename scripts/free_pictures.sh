# The free pictures of Debian packages for the training and the evaluation of the red-eye model; to be sourced after common.sh.
# They are downloaded into build/training and not installed.
pictures=$root/build/training

# Every fourth of its input, which is not trained on, or the others.
held_out() { awk 'NR % 4 == 0'; }
trained_on() { awk 'NR % 4 != 0'; }

# What the packages hold among photographs but was drawn.
drawings='Autumn/|Flow/|Honeywave/|PastelHills/|SafeLanding/|Shell/|umang_by|analogpattern_by'

# Unpacks packages into a folder.
unpack() {
    local folder=$1 package
    mkdir -p "$pictures/packages" "$folder"
    for package in "${@:2}"; do
        if ! compgen -G "$pictures/packages/${package}_*.deb" >/dev/null; then
            echo "Downloading $package"
            (cd "$pictures/packages" && apt-get download -qq "$package" 2>/dev/null)
        fi
        dpkg-deb -x "$pictures/packages/${package}"_*.deb "$folder"
    done
}

# Writes the lists training-photographs and training-cut-outs, and the same with held-out.
list_pictures() {
    unpack "$pictures/files" lomiri-wallpapers-16.04 mate-backgrounds plasma-workspace-wallpapers tuxpaint-stamps-default
    local files=$pictures/files/usr/share photographs cut_outs
    photographs=$(find "$files" -type f -size +100k \( -name '*_by_*.jpg' -o -path '*/mate/nature/*.jpg' -o \
        -path '*/images/[0-9]*.jpg' \) | LC_ALL=C sort)
    cut_outs=$(find "$files/tuxpaint/stamps" -type f \( -name '*.png' -o -name '*.jpg' \) | LC_ALL=C sort |
        grep -v '/symbols/\|cartoon\|flags\|_mirror\|roadsigns')
    { grep -Ev "$drawings" <<<"$photographs" | trained_on && grep -E "$drawings" <<<"$photographs"; } >"$pictures/training-photographs"
    grep -Ev "$drawings" <<<"$photographs" | held_out >"$pictures/held-out-photographs"
    trained_on <<<"$cut_outs" >"$pictures/training-cut-outs"
    held_out <<<"$cut_outs" >"$pictures/held-out-cut-outs"
}

# Writes the list free-photographs: of pictures that were not trained on, without red eyes. The last are cut-outs.
list_free_photographs() {
    local files=$pictures/free-files/usr name
    unpack "$pictures/free-files" ukui-wallpapers lomiri-wallpapers-20.04 gnome-backgrounds opencv-doc python3-skimage python3-sklearn-lib python3-sklearn
    {
        cat "$pictures/held-out-photographs"
        find "$files/share/backgrounds" -type f -size +100k \( -name 'Fossa*' -o -name 'Kleiber*' -o -name 'Infinite*' -o \
            -name 'Painting*' -o -path '*/gnome/wood*.webp' \)
        for name in 2004default.jpg firstgeneration.jpg goldfish.png rhythm.jpg string.jpg the-mouse.jpg calla.png city.png desert.png; do
            echo "$files/share/backgrounds/$name"
        done
        for name in astronaut.png chelsea.png coffee.png color.png hubble_deep_field.jpg ihc.png motorcycle_left.png retina.jpg \
            rocket.jpg; do
            echo "$files/lib/python3/dist-packages/skimage/data/$name"
        done
        find "$files/lib/python3/dist-packages/sklearn/datasets/images" -name '*.jpg'
        for name in aloeL.jpg apple.jpg baboon.jpg basketball1.png basketball2.png board.jpg building.jpg butterfly.jpg fruits.jpg \
            graf1.png home.jpg leuvenA.jpg messi5.jpg orange.jpg rubberwhale1.png smarties.png squirrel_cls.jpg; do
            echo "$files/share/doc/opencv-doc/examples/data/$name"
        done
        cat "$pictures/held-out-cut-outs"
    } | while IFS= read -r name; do
        [[ ! -e $name ]] || echo "$name"
    done | LC_ALL=C awk '!seen[$0]++ && ++count <= 100' >"$pictures/free-photographs"
}
