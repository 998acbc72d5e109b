#!/usr/bin/env python3
"""Writes a synthetic store for the benchmarks, and the same site for Hugo.

    make_store.py N DIR [--categories C] [--page-size P] [--import BUILD_DIR]
                  [--postgres CONNINFO] [--no-hugo]

DIR/store/ is the store in storegen's formats: the store configuration
shop.cfg (text files) and, with --import, sqlite.cfg (the same store through
the SQLite product library, from store.sqlite made by storegen-import) and,
with --postgres CONNINFO too, pg.cfg (through the PostgreSQL product
library, from that database, with store.pgconf and store.adb); the
template set bench.cfg with its templates in bench/; the product database
products.txt (N products spread over C categories), the category database
products.cdb and the attribute database products.adb.

DIR/hugo/ is the same site for Hugo: one content file per product, the same
categories as taxonomy terms, and layouts that write the same pages as the
templates (product pages, a paged home page with the category list, a paged
page per category, three site pages and three cart pages).

Both write pages of a few KB: a product page carries 19 product values, the
attribute form controls, relative links and images; the home page lists the
categories and P products per page, each category page P of its products.
Everything is derived from a fixed seed, so a store is the same every time.
"""
import argparse
import os
import random
import shutil
import subprocess
import sys

STORE_DIR = "shop"  # the store's directory below the HTML root
SHOP_NAME = "Field & Forge Supply"
IMAGES = 24  # product pictures, shared by the products

COLUMNS = ["SKU", "NAME", "PRICE", "TILLBOXCATEGORY", "TILLBOXTEMPLATE", "TILLBOXATTRIBUTES",
           "GRAPHIC", "THUMBNAIL", "BRAND", "COLOR", "MATERIAL", "WEIGHT", "DIMENSIONS", "ORIGIN",
           "STOCK", "RATING", "SHIPPING", "DESCRIPTION"]

# Attribute database: number, control type, label, values.
ATTRIBUTES = [
    (1, 1, "Colour", ["Natural", "Charcoal", "Indigo", "Rust", "Moss", "Sand"]),
    (2, 3, "Size", ["Small", "Medium", "Large", "Extra large"]),
    (3, 4, "Extras", ["Gift wrap", "Spare parts", "Care kit"]),
    (4, 5, "Engraving", []),
    (5, 6, "Finish", ["Brass", "Matte black", "Copper", "Steel", "Oak"]),
]

WORDS = ("sturdy light hand made oiled waxed woven forged turned cast brushed small large "
         "everyday careful simple quiet warm cool soft firm honest plain useful lasting "
         "kitchen garden workshop table shelf window porch desk bench drawer lamp basket "
         "linen wool oak ash brass steel iron clay glass paper cotton leather cork jute "
         "made in a small workshop from material that ages well and can be mended when it "
         "wears after years of use").split()
ADJECTIVES = ["Brass", "Oak", "Linen", "Iron", "Clay", "Wool", "Copper", "Ash", "Glass", "Cork",
              "Walnut", "Stone", "Steel", "Cotton", "Leather", "Willow"]
NOUNS = ["Lamp", "Bowl", "Throw", "Skillet", "Basket", "Notebook", "Trowel", "Mug", "Lantern",
         "Board", "Hook", "Tray", "Jar", "Rack", "Stool", "Planter", "Kettle", "Brush"]
COLORS = ["Natural", "Charcoal", "Indigo", "Rust", "Moss", "Sand", "Ochre", "Slate"]
MATERIALS = ["Solid oak", "Cast iron", "Linen", "Merino wool", "Stoneware", "Brass", "Paper"]
ORIGINS = ["Portugal", "Scotland", "Japan", "Vermont", "Sweden", "Mexico", "Italy"]
BRANDS = ["Millbrook Works", "North Ridge", "Harbour & Vine", "Old Kiln", "Tallow House",
          "Weaver's Row", "Greyfield"]


def sku(i):
    return "FF-%06d" % i


def category_names(count):
    """Deterministic, distinct category names ("Kitchen 07" ...)."""
    rooms = ["Kitchen", "Garden", "Lighting", "Textiles", "Stationery", "Workshop", "Bath",
             "Dining", "Outdoor", "Storage"]
    return ["%s %02d" % (rooms[i % len(rooms)], i + 1) for i in range(count)]


def slug(name):
    return name.lower().replace(" ", "-")


def product(i, categories, rng):
    """The columns of product i, in COLUMNS order."""
    name = "%s %s %d" % (ADJECTIVES[i % len(ADJECTIVES)], NOUNS[(i // 7) % len(NOUNS)], i)
    image = "images/p/item-%02d.svg" % (i % IMAGES)
    attributes = ["1:%s" % ",".join(str(v) for v in range(1, 2 + i % 5))]
    if i % 2 == 0:
        attributes.append("2:1,2,3,4")
    if i % 3 == 0:
        attributes.append("3:1,2")
    if i % 5 == 0:
        attributes.append("4:1")
    if i % 4 == 1:
        attributes.append("5:1,3,5")
    words = rng.randint(70, 110)
    description = " ".join(rng.choice(WORDS) for _ in range(words)).capitalize() + "."
    return [
        sku(i), name, "%d.%02d" % (4 + i % 300, (i * 37) % 100), categories[i % len(categories)],
        "NA", "|".join(attributes), image, image, BRANDS[i % len(BRANDS)],
        COLORS[i % len(COLORS)], MATERIALS[i % len(MATERIALS)], "%d g" % (120 + (i * 13) % 2400),
        "%d x %d x %d cm" % (10 + i % 40, 8 + i % 30, 2 + i % 25), ORIGINS[i % len(ORIGINS)],
        str((i * 7) % 120), "%d.%d" % (3 + i % 3, i % 10),
        "Ships in %d working days" % (1 + i % 5), description,
    ]


# ---------------------------------------------------------------------------
# The pages. Each is written twice: as a storegen template and as a Hugo
# layout. Both share the HTML; only the way values get in differs.

def chrome(title, body, dialect, cached_footer=False):
    """A whole page around |body|: head, header with navigation, footer. With
    |cached_footer| storegen caches the footer as a text block: one cache file
    per page file, so only the few site pages use it."""
    if dialect == "storegen":
        store_name = "<!-- PAGEGEN_STORENAME -->"
        head_extra = '<link rel="stylesheet" href="css/style.css">'
        body_tag = "<!-- PAGEGEN_BODYTAG -->"
        logo = "<!-- PAGEGEN_STORELOGO -->"
        link = lambda target: target  # noqa: E731 - relative: storegen rewrites them
        footer = FOOTER.format(
            name=store_name, addr1="<!-- PAGEGEN_STOREADDR1 -->",
            addr2="<!-- PAGEGEN_STOREADDR2 -->", phone="<!-- PAGEGEN_STOREPHONE -->",
            fax="<!-- PAGEGEN_STOREFAX -->", email="<!-- PAGEGEN_STOREEMAIL -->",
            about="about.html", shipping="shipping.html", contact="contact.html")
        if cached_footer:
            footer = "<!-- PAGEGEN_TEXT_BEGIN -->\n" + footer + "<!-- PAGEGEN_TEXT_END -->\n"
    else:
        store_name = "{{ site.Title }}"
        head_extra = '<link rel="stylesheet" href="{{ "css/style.css" | relURL }}">'
        body_tag = ('<BODY BGCOLOR="{{ site.Params.bgcolor }}" TEXT="{{ site.Params.textcolor }}" >')
        logo = '<IMG SRC="{{ "images/logo.svg" | relURL }}">'
        link = lambda target: '{{ "%s" | relURL }}' % target  # noqa: E731
        footer = '{{ partialCached "footer.html" . }}\n'
    nav = "\n".join('      <a href="%s">%s</a>' % (link(t), n) for t, n in [
        ("index.html", "Shop"), ("about.html", "About"), ("shipping.html", "Shipping"),
        ("contact.html", "Contact"), ("cart.html", "Cart")])
    return """<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>{title} &middot; {store_name}</title>
{head_extra}
</head>
{body_tag}
<header class="site-header">
  <div class="wrap">
    <a class="brand" href="{home}">{logo}<span>{store_name}</span></a>
    <nav class="site-nav">
{nav}
    </nav>
  </div>
</header>
{body}{footer}</BODY>
</html>
""".format(title=title, store_name=store_name, head_extra=head_extra, body_tag=body_tag,
           home=link("index.html"), logo=logo, nav=nav, body=body, footer=footer)


FOOTER = """<footer class="site-footer">
  <div class="wrap">
    <div>
      <p><strong>{name}</strong></p>
      <p>{addr1}</p>
      <p>{addr2}</p>
    </div>
    <div>
      <p>Phone {phone}</p>
      <p>Fax {fax}</p>
      <p>{email}</p>
    </div>
    <div>
      <p><a href="{about}">About us</a></p>
      <p><a href="{shipping}">Shipping &amp; returns</a></p>
      <p><a href="{contact}">Contact</a></p>
    </div>
  </div>
</footer>
"""

PRODUCT_BODY = """<main class="wrap">
  <nav class="crumbs"><a href="{home}">Shop</a> &rsaquo; <a href="{catlink}">{category}</a> &rsaquo; {name}</nav>
  <div class="product">
    <figure class="product-photo"><img src="{graphic}" alt="{name}" width="480" height="480"></figure>
    <section>
      <h1>{name}</h1>
      <p class="brand">by {brand}</p>
      <p class="price">{currency}{price}</p>
      <p class="rating">Rated {rating} of 5 by our customers</p>
      <div class="description">{description}</div>
      <table class="specs">
        <tr><th>Item number</th><td>{sku}</td></tr>
        <tr><th>Colour</th><td>{color}</td></tr>
        <tr><th>Material</th><td>{material}</td></tr>
        <tr><th>Weight</th><td>{weight}</td></tr>
        <tr><th>Dimensions</th><td>{dimensions}</td></tr>
        <tr><th>Made in</th><td>{origin}</td></tr>
        <tr><th>In stock</th><td>{stock}</td></tr>
        <tr><th>Delivery</th><td>{shipping}</td></tr>
      </table>
      <form class="buy" method="post" action="{addtocart}">
        <input type="hidden" name="sku" value="{sku}">
        <div class="options">{attributes}</div>
        <label>Quantity <input type="number" name="quantity" value="1" min="1"></label>
        <button class="button" type="submit">Add to cart</button>
      </form>
      <p class="thumb"><img src="{thumbnail}" alt="" width="64" height="64"> Pictures show the {color_lc} version.</p>
    </section>
  </div>
</main>
"""

CARD = ('    <li><a class="card" href="{link}"><img src="{thumbnail}" alt="" width="160" '
        'height="160"><div class="card-body"><h3>{name}</h3><p class="brand">{brand}</p>'
        '<p class="price">{currency}{price}</p></div></a></li>\n')
CATEGORY_ITEM = ('    <li><a href="{link}"><img src="{graphic}" alt="" width="48" height="48">'
                 '<span>{title}</span></a></li>\n')


def storegen_templates(page_size):
    """The template set's files: name -> text."""
    p = lambda attr: "%%%%PRODUCT.%s%%%%" % attr  # noqa: E731
    c = lambda attr: "%%%%CATEGORY.%s%%%%" % attr  # noqa: E731
    currency = "<!-- PAGEGEN_CURRENCYSYMBOL -->"
    product_body = PRODUCT_BODY.format(
        home="index.html", catlink="PG_CATEGORYFILE#", category=p("TILLBOXCATEGORY"),
        name=p("NAME"), graphic=p("GRAPHIC"), brand=p("BRAND"), currency=currency,
        price=p("PRICE"), rating=p("RATING"), description="<p>%s</p>" % p("DESCRIPTION"), sku=p("SKU"),
        color=p("COLOR"), material=p("MATERIAL"), weight=p("WEIGHT"),
        dimensions=p("DIMENSIONS"), origin=p("ORIGIN"), stock=p("STOCK"),
        shipping=p("SHIPPING"), addtocart="ADDTOCART#cart.html",
        attributes="<!-- PAGEGEN_ATTRIBUTES -->", thumbnail=p("THUMBNAIL"),
        color_lc=p("COLOR"))
    card = CARD.format(link="PG_PRODUCTFILE#", thumbnail=p("THUMBNAIL"), name=p("NAME"),
                       brand=p("BRAND"), currency=currency, price=p("PRICE"))
    product_list = ('  <ul class="grid">\n<!-- PAGEGEN_PRODUCTLIST_BEGIN MaxPerPage="%d" -->\n%s'
                    '<!-- PAGEGEN_PRODUCTLIST_END -->\n  </ul>\n') % (page_size, card)
    category_list = ('  <ul class="categories">\n<!-- PAGEGEN_CATEGORYLIST_BEGIN '
                     'CategoryTemplate="bench/category.html" -->\n%s'
                     '<!-- PAGEGEN_CATEGORYLIST_END -->\n  </ul>\n') % CATEGORY_ITEM.format(
                         link="PG_CATEGORYFILE#", graphic=c("GRAPHIC"), title=c("TITLE"))
    home_body = ('<main class="wrap">\n  <p class="welcome"><!-- PAGEGEN_STOREWELCOME --></p>\n'
                 '  <h2>Shop by category</h2>\n' + category_list +
                 '  <h2 id="products">All products</h2>\n' + product_list + '</main>\n')
    category_body = ('<main class="wrap">\n  <nav class="crumbs"><a href="index.html">Shop</a> '
                     '&rsaquo; %s</nav>\n  <h1>%s</h1>\n  <p class="blurb"><img src="%s" alt="" '
                     'width="96" height="96"> %s</p>\n' % (c("TITLE"), c("TITLE"), c("GRAPHIC"),
                                                         c("BLURB")) + product_list + '</main>\n')
    files = {
        "product.html": chrome(p("NAME"), product_body, "storegen"),
        "home.html": chrome("Shop", home_body, "storegen"),
        "category.html": chrome(c("TITLE"), category_body, "storegen"),
    }
    for name, title, text in SIMPLE_PAGES:
        files[name + ".html"] = chrome(title, simple_body(title, text, "storegen"), "storegen",
                                       cached_footer=True)
    return files


SIMPLE_PAGES = [
    ("about", "About us", "We are a small shop run from a workshop by the river. Everything we "
     "sell is made in small batches by people we have met, and we keep the range short on "
     "purpose: if a thing does not earn its place on our own shelves, it does not go into the "
     "shop."),
    ("shipping", "Shipping &amp; returns", "Orders leave the workshop within two working days. "
     "We pack in paper and card only. If something is not right, send it back within thirty "
     "days and we refund the price and the postage."),
    ("contact", "Contact", "Write to us, call, or come by on a Saturday between ten and four. "
     "We answer every message within a working day."),
    ("cart", "Your cart", "Your cart is shown here by the cart program when you add something "
     "from a product page."),
    ("order", "Checkout", "Enter your address and payment details; the cart program takes the "
     "order from here."),
    ("error", "Something went wrong", "The cart program could not complete your request. "
     "Please try again, or write to us."),
]


def simple_body(title, text, dialect):
    if dialect == "storegen":
        addr = "<!-- PAGEGEN_STOREADDR1 -->, <!-- PAGEGEN_STOREADDR2 -->"
        home, shop = "index.html", "<!-- PAGEGEN_STORENAME -->"
    else:
        addr = "{{ site.Params.address1 }}, {{ site.Params.address2 }}"
        home, shop = '{{ "index.html" | relURL }}', "{{ site.Title }}"
    return ('<main class="wrap page">\n  <h1>%s</h1>\n  <p>%s</p>\n  <div class="panel">\n'
            '    <p>%s</p>\n    <p>%s</p>\n  </div>\n  <p><a class="button" href="%s">Back to '
            'the shop</a></p>\n</main>\n') % (title, text, shop, addr, home)


def hugo_layouts(page_size):
    """The Hugo site's layouts and partials: path -> text."""
    v = lambda name: "{{ .Params.%s }}" % name  # noqa: E731
    currency = "{{ site.Params.currency }}"
    attributes = """{{ range .Params.options }}{{ .label }}<BR>
{{ if eq .type "select" }}<SELECT SIZE="{{ .size }}" NAME="{{ .label }}">
{{ range $i, $v := .values }}<OPTION VALUE="{{ $v }}" {{ if eq $i 0 }}SELECTED{{ end }}>{{ $v }}</OPTION>
{{ end }}</SELECT>
{{ else if eq .type "radio" }}{{ $label := .label }}{{ range $i, $v := .values }}<INPUT TYPE="RADIO" NAME="{{ $label }}" VALUE="{{ $v }}" {{ if eq $i 0 }}CHECKED{{ end }}>{{ $v }}<BR>
{{ end }}{{ else if eq .type "checkbox" }}{{ range $i, $v := .values }}<INPUT TYPE="CHECKBOX" NAME="{{ $v }}" {{ if eq $i 0 }}CHECKED{{ end }}>{{ $v }}<BR>
{{ end }}{{ else }}<INPUT TYPE="TEXT" SIZE=15 NAME="{{ .label }}">
{{ end }}<BR>{{ end }}"""
    product_body = PRODUCT_BODY.format(
        home='{{ "index.html" | relURL }}',
        catlink='{{ print "categories/" (urlize .Params.category) "/" | relURL }}',
        category=v("category"), name="{{ .Title }}", graphic='{{ .Params.graphic | relURL }}',
        brand=v("brand"), currency=currency, price=v("price"), rating=v("rating"),
        description="{{ .Content }}", sku=v("sku"), color=v("color"), material=v("material"),
        weight=v("grams"), dimensions=v("dimensions"), origin=v("origin"), stock=v("stock"),
        shipping=v("shipping"), addtocart='ADDTOCART#{{ "cart.html" | relURL | safeURL }}',
        attributes=attributes, thumbnail='{{ .Params.thumbnail | relURL }}',
        color_lc=v("color"))
    card = CARD.format(link="{{ .RelPermalink }}", thumbnail="{{ .Params.thumbnail | relURL }}",
                       name="{{ .Title }}", brand=v("brand"), currency=currency, price=v("price"))
    pager = ('{{ if $pager.HasPrev }}<A HREF="{{ $pager.Prev.URL }}">&lt;&lt;</A>{{ end }}'
             '{{ if $pager.HasNext }}<A HREF="{{ $pager.Next.URL }}">&gt;&gt;</A>{{ end }}\n')
    product_list = ('  <ul class="grid">\n{{ range $pager.Pages }}' + card + '{{ end }}' + pager +
                    '  </ul>\n')
    categories = ('  <ul class="categories">\n{{ range site.Data.categories.list }}' +
                  CATEGORY_ITEM.format(
                      link='{{ print "categories/" (urlize .name) "/" | relURL }}',
                      graphic="{{ .graphic | relURL }}", title="{{ .title }}") +
                  '{{ end }}  </ul>\n')
    home_body = ('<main class="wrap">\n  <p class="welcome">{{ site.Params.welcome }}</p>\n'
                 '  <h2>Shop by category</h2>\n' + categories +
                 '  <h2 id="products">All products</h2>\n'
                 '{{ $pager := .Paginate site.RegularPages %d }}\n' % page_size + product_list + '</main>\n')
    term_body = ('{{ $cat := index site.Data.categories.byname (urlize .Title) }}'
                 '<main class="wrap">\n  <nav class="crumbs"><a href="{{ "index.html" | relURL }}">'
                 'Shop</a> &rsaquo; {{ $cat.title }}</nav>\n  <h1>{{ $cat.title }}</h1>\n'
                 '  <p class="blurb"><img src="{{ $cat.graphic | relURL }}" alt="" width="96" '
                 'height="96"> {{ $cat.blurb }}</p>\n'
                 '{{ $pager := .Paginate .Pages %d }}\n' % page_size + product_list + '</main>\n')
    files = {
        "layouts/_default/single.html": chrome("{{ .Title }}", product_body, "hugo"),
        "layouts/index.html": chrome("Shop", home_body, "hugo"),
        "layouts/_default/term.html": chrome("{{ .Title }}", term_body, "hugo"),
        "layouts/_default/simple.html": chrome(
            "{{ .Title }}", simple_body("{{ .Title }}", "{{ .Content }}", "hugo"), "hugo"),
        "layouts/partials/footer.html": FOOTER.format(
            name="{{ site.Title }}", addr1="{{ site.Params.address1 }}",
            addr2="{{ site.Params.address2 }}", phone="{{ site.Params.phone }}",
            fax="{{ site.Params.fax }}", email="{{ site.Params.email }}",
            about='{{ "about.html" | relURL }}', shipping='{{ "shipping.html" | relURL }}',
            contact='{{ "contact.html" | relURL }}'),
    }
    return files


STORE = {
    "ShopName": SHOP_NAME,
    "PageGenBgColor": "#f7f5f0",
    "PageGenTextColor": "#222222",
    "StoreLogo": "images/logo.svg",
    "StoreWelcome": "Tools, textiles and tableware made to be used every day and mended when "
                    "they wear.",
    "StorePhone": "+1 555 0199",
    "StoreFax": "+1 555 0198",
    "StoreAddress1": "7 Forge Lane",
    "StoreAddress2": "Eastfield, EF 30418",
    "StoreEmail": "orders@field-and-forge.example",
    "Currency": "$",
}

STYLE = "body{font-family:sans-serif;margin:0}.wrap{max-width:70rem;margin:auto}\n"
SVG = ('<svg xmlns="http://www.w3.org/2000/svg" width="64" height="64"><rect width="64" '
       'height="64" fill="#%06x"/></svg>\n')


def write(path, text):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "w", newline="\n") as out:
        out.write(text)


def write_static(root):
    """Style sheet and pictures, below |root| (the template set's or Hugo's static/)."""
    write(os.path.join(root, "css", "style.css"), STYLE)
    write(os.path.join(root, "images", "logo.svg"), SVG % 0x334455)
    for i in range(IMAGES):
        write(os.path.join(root, "images", "p", "item-%02d.svg" % i), SVG % (i * 0x0a0b0c))
    for i in range(10):
        write(os.path.join(root, "images", "c", "room-%d.svg" % i), SVG % (i * 0x111111))


def category_record(i, name):
    return [name, name.replace(" ", " room "), "Things for the %s, chosen one at a time and "
            "made to last." % name.split()[0].lower(), "images/c/room-%d.svg" % (i % 10)]


def write_storegen_store(root, products, categories, page_size):
    os.makedirs(root)
    config = dict(STORE)
    config.update({
        "AllowPagegen": "yes", "PageGenDynamicProductPages": "no",
        "PageGenDynamicListPages": "no", "StoreDir": "/%s/" % STORE_DIR,
        "PageGenTmpltSet": "bench", "ProductDatabase": os.path.join(root, "products.txt"),
        "ShoppingCartDirectory": "cart", "PageGenShopHomePage": "1",
        "CGIBinDirectory": "/cgi-bin", "PageGenProg": "/cgi-bin/storegen", "AllowIndex": "no",
    })
    write(os.path.join(root, "shop.cfg"), "".join("%s\t%s\n" % kv for kv in config.items()))
    write(os.path.join(root, "bench.cfg"), "".join("%s\t%s\n" % kv for kv in [
        ("CreatorName", "storegen bench"), ("StyleName", "Bench"), ("MaxProdPerPage", "0"),
        ("ShopHomePage1", "Home;bench/home.html;index.html"),
        ("DefaultProductPage", "Product;bench/product.html"),
        ("SitePage1", "About;bench/about.html;about.html"),
        ("SitePage2", "Shipping;bench/shipping.html;shipping.html"),
        ("SitePage3", "Contact;bench/contact.html;contact.html"),
        ("TillboxPage1", "Show Cart;bench/cart.html;cart.html"),
        ("TillboxPage2", "Take Order;bench/order.html;order.html"),
        ("TillboxPage3", "Error;bench/error.html;error.html"),
    ]))
    for name, text in storegen_templates(page_size).items():
        write(os.path.join(root, "bench", name), text)
    write_static(os.path.join(root, "bench"))
    with open(os.path.join(root, "products.txt"), "w", newline="\n") as out:
        out.write("\t".join(COLUMNS) + "\n")
        for row in products:
            out.write("\t".join(row) + "\n")
    write(os.path.join(root, "products.cdb"),
          "TILLBOXCATEGORY\tTITLE\tBLURB\tGRAPHIC\n" +
          "".join("\t".join(category_record(i, c)) + "\n" for i, c in enumerate(categories)))
    write(os.path.join(root, "products.adb"),
          "".join("%d\t%d\t%s\t%s\n" % (n, t, label, ",".join(values))
                  for n, t, label, values in ATTRIBUTES))


def yaml_text(value):
    return '"%s"' % value.replace("\\", "\\\\").replace('"', '\\"')


def hugo_options(options):
    """The attribute controls of a product as Hugo front matter."""
    types = {1: ("select", 1), 3: ("radio", 0), 4: ("checkbox", 0), 5: ("text", 0),
             6: ("select", 5)}
    by_number = {n: (t, label, values) for n, t, label, values in ATTRIBUTES}
    lines = ["options:"]
    for entry in options.split("|"):
        number, _, picks = entry.partition(":")
        kind, label, values = by_number[int(number)]
        control, size = types[kind]
        chosen = [values[int(p) - 1] for p in picks.split(",") if int(p) <= len(values)]
        lines.append("  - label: %s\n    type: %s\n    size: %d\n    values: [%s]" % (
            yaml_text(label), control, size, ", ".join(yaml_text(c) for c in chosen)))
    return "\n".join(lines)


def write_hugo_site(root, products, categories, page_size):
    os.makedirs(root)
    params = "\n".join('%s = %s' % (k, yaml_text(v)) for k, v in [
        ("bgcolor", STORE["PageGenBgColor"]), ("textcolor", STORE["PageGenTextColor"]),
        ("welcome", STORE["StoreWelcome"]), ("phone", STORE["StorePhone"]),
        ("fax", STORE["StoreFax"]), ("address1", STORE["StoreAddress1"]),
        ("address2", STORE["StoreAddress2"]), ("email", STORE["StoreEmail"]),
        ("currency", STORE["Currency"])])
    write(os.path.join(root, "config.toml"), """baseURL = "http://www.example.com/%s/"
title = %s
disableKinds = ["taxonomy", "section", "RSS", "sitemap", "robotsTXT", "404"]
disableAliases = true
ignoreErrors = ["error-disable-taxonomy"]
paginate = %d
[taxonomies]
category = "categories"
[params]
%s
""" % (STORE_DIR, yaml_text(SHOP_NAME), page_size, params))
    for name, text in hugo_layouts(page_size).items():
        write(os.path.join(root, name), text)
    write_static(os.path.join(root, "static"))
    cats = [category_record(i, c) for i, c in enumerate(categories)]
    write(os.path.join(root, "data", "categories.yaml"), "list:\n" + "".join(
        "  - {name: %s, title: %s, blurb: %s, graphic: %s}\n" % tuple(yaml_text(x) for x in c)
        for c in cats) + "byname:\n" + "".join(
        "  %s: {title: %s, blurb: %s, graphic: %s}\n" % tuple(
            yaml_text(x) for x in [slug(c[0])] + c[1:]) for c in cats))
    for name, title, text in SIMPLE_PAGES:
        write(os.path.join(root, "content", name + ".md"),
              "---\ntitle: %s\nurl: /%s.html\nlayout: simple\n_build:\n  list: never\n---\n%s\n"
              % (
                  yaml_text(title.replace("&amp;", "&")), name, text))
    content = os.path.join(root, "content", "products")
    os.makedirs(content)
    keys = {c: c.lower() for c in COLUMNS}
    keys["WEIGHT"] = "grams"  # .Params.weight is Hugo's own
    for row in products:
        values = dict(zip(COLUMNS, row))
        front = ["title: %s" % yaml_text(values["NAME"]),
                 "url: /p-%s.html" % values["SKU"],
                 "categories: [%s]" % yaml_text(values["TILLBOXCATEGORY"]),
                 "category: %s" % yaml_text(values["TILLBOXCATEGORY"])]
        for column in ("SKU", "PRICE", "GRAPHIC", "THUMBNAIL", "BRAND", "COLOR", "MATERIAL",
                       "WEIGHT", "DIMENSIONS", "ORIGIN", "STOCK", "RATING", "SHIPPING"):
            front.append("%s: %s" % (keys[column], yaml_text(values[column])))
        front.append(hugo_options(values["TILLBOXATTRIBUTES"]))
        with open(os.path.join(content, values["SKU"] + ".md"), "w", newline="\n") as out:
            out.write("---\n%s\n---\n%s\n" % ("\n".join(front), values["DESCRIPTION"]))


def use_library(store, build, name, library, api_cfg):
    """Writes NAME.cfg: the store's shop.cfg reading through LIBRARY."""
    with open(os.path.join(store, "shop.cfg")) as f:
        lines = [line for line in f.read().splitlines()
                 if not line.startswith("ProductDatabase\t")]
    lines += ["ProductDatabase\t" + api_cfg,
              "ProductAPILibrary\t" + os.path.join(build, "lib", library),
              "ProductAPILibConfig\t" + api_cfg]
    write(os.path.join(store, name + ".cfg"), "\n".join(lines) + "\n")


def import_into_postgres(store, build, conninfo):
    """Imports the store into the database CONNINFO names (storegen-import)
    and writes pg.cfg, reading it through the PostgreSQL library, with its
    connection string in store.pgconf and its attribute database beside."""
    subprocess.run([os.path.join(build, "bin", "storegen-import"),
                    os.path.join(store, "products.txt"), "pg:" + conninfo],
                   check=True, stdout=subprocess.DEVNULL)
    api_cfg = os.path.join(store, "store.pgconf")
    write(api_cfg, conninfo + "\n")
    shutil.copy(os.path.join(store, "products.adb"), os.path.join(store, "store.adb"))
    use_library(store, build, "pg", "libstoregen_papi_pg.so", api_cfg)


def make_store(n, directory, categories=50, page_size=20, build_dir=None, pg_conninfo=None,
               hugo=True):
    """Writes DIR/store and (with |hugo|) DIR/hugo afresh; returns DIR
    (absolute). With BUILD_DIR, also store.sqlite and sqlite.cfg; with
    PG_CONNINFO too, the store in that database and pg.cfg."""
    directory = os.path.abspath(directory)
    if os.path.exists(directory):
        shutil.rmtree(directory)
    rng = random.Random(20240917)
    names = category_names(categories)
    products = [product(i, names, rng) for i in range(n)]
    store = os.path.join(directory, "store")
    write_storegen_store(store, products, names, page_size)
    if hugo:
        write_hugo_site(os.path.join(directory, "hugo"), products, names, page_size)
    if build_dir:
        build = os.path.abspath(build_dir)
        sqlite_db = os.path.join(store, "store.sqlite")
        subprocess.run([os.path.join(build, "bin", "storegen-import"),
                        os.path.join(store, "products.txt"), sqlite_db],
                       check=True, stdout=subprocess.DEVNULL)
        use_library(store, build, "sqlite", "libstoregen_papi_sqlite.so", sqlite_db)
        if pg_conninfo:
            import_into_postgres(store, build, pg_conninfo)
    return directory


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("n", type=int, help="number of products")
    parser.add_argument("dir")
    parser.add_argument("--categories", type=int, default=50)
    parser.add_argument("--page-size", type=int, default=20)
    parser.add_argument("--import", dest="build_dir", metavar="BUILD_DIR",
                        help="also make store.sqlite and sqlite.cfg with this build")
    parser.add_argument("--postgres", metavar="CONNINFO",
                        help="with --import, also import into this PostgreSQL database "
                             "(a libpq connection string) and make pg.cfg")
    parser.add_argument("--no-hugo", action="store_true", help="leave the Hugo site out")
    args = parser.parse_args()
    make_store(args.n, args.dir, args.categories, args.page_size, args.build_dir, args.postgres,
               not args.no_hugo)


if __name__ == "__main__":
    sys.exit(main())
