# Prepares a Markdown page for doxygen:
#   - its first heading gets a name that @ref can use: the file's own, or its folder's for a README
#   - a Mermaid graph (not another diagram) becomes one of Graphviz
#   - a single quote ends no code
#   - a link to another page becomes a reference; a link to a source becomes its text
function pageName(path,    parts, count, name) {
    sub(/#.*/, "", path)
    count = split(path, parts, "/")
    name = tolower(parts[count])
    sub(/\.md$/, "", name)
    if (name == "readme" && (parts[count - 1] == "agent" || parts[count - 1] == "sandbox"))
        name = parts[count - 1]
    return name
}

# replaces [text](target); bare web addresses stay
function links(line,    result, start, length_, text, target, whole) {
    result = ""
    while (match(line, /\[[^]]*\]\([^)]*\)/)) {
        whole = substr(line, RSTART, RLENGTH)
        start = RSTART
        length_ = RLENGTH
        text = whole
        sub(/^\[/, "", text)
        sub(/\]\([^)]*\)$/, "", text)
        target = whole
        sub(/^.*\]\(/, "", target)
        sub(/\)$/, "", target)
        if (target ~ /^https?:/)
            whole = whole
        else if (target ~ /\.svg$/) # found in IMAGE_PATH
            sub(/\([^)]*\//, "(", whole)
        else if (target ~ /\.md(#.*)?$/ && target !~ /fuzz\//)
            whole = "@ref " pageName(target) " \"" text "\""
        else
            whole = text
        result = result substr(line, 1, start - 1) whole
        line = substr(line, start + length_)
    }
    return result line
}

# doubles the marks of code that holds a single quote, which doxygen would take for the end of it
function quotes(line,    result, code_) {
    result = ""
    while (match(line, /`[^`]+`/)) {
        code_ = substr(line, RSTART, RLENGTH)
        if (code_ ~ /'/)
            code_ = "`" code_ "`"
        result = result substr(line, 1, RSTART - 1) code_
        line = substr(line, RSTART + RLENGTH)
    }
    return result line
}

# a node of a Mermaid graph, such as name, name[label] or name["label"]: prints its label, returns
# its name
function node(text,    name, label) {
    gsub(/^ +| +$/, "", text)
    name = text
    sub(/\[.*/, "", name)
    if (text ~ /\[/) {
        label = text
        sub(/^[^[]*\["?/, "", label)
        sub(/"?\]$/, "", label)
        printf "    %s [label=\"%s\"];\n", name, label
    }
    return name
}

FNR == 1 && /^# / && FILENAME !~ /mainpage/ { print $0 " {#" pageName(FILENAME) "}"; next }

/^```mermaid/ { getline kind; if (kind ~ /^graph/) { graph = 1; direction = kind; sub(/^graph /, "", direction)
        if (direction == "TD") direction = "TB"
        print "@dot"; print "digraph {"; print "    rankdir=" direction "; node [shape=box, fontname=Helvetica, fontsize=10]; edge [fontname=Helvetica, fontsize=9];" }
    else { code = 1; print "```"; print kind }
    next }
graph && /^```/ { print "}"; print "@enddot"; graph = 0; next }
graph && /-->/ {
    split($0, sides, / *--> */)
    label = ""
    if (sides[2] ~ /^\|/) {
        label = sides[2]
        sub(/^\|"?/, "", label)
        sub(/"?\|.*/, "", label)
        sub(/^\|[^|]*\|/, "", sides[2])
    }
    from = node(sides[1])
    to = node(sides[2])
    printf "    %s -> %s [label=\"%s\"];\n", from, to, label
    next
}
graph { if (NF) node($0); next }

/^```/ { code = !code }
code || /^    / || FILENAME ~ /mainpage/ { print; next }
{ print links(quotes($0)) }
